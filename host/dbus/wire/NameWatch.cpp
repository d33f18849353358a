#include "host/dbus/wire/NameWatch.h"

namespace Tolvar {

NameWatch::NameWatch(BusLink& Link, const std::string& UniqueName) {
    const std::string What = "cannot follow " + UniqueName + " on the bus";
    const std::string Rule =
        "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" +
        UniqueName + "'";
    sd_bus_slot* Made = nullptr;
    Sent(sd_bus_add_match(Link.Bus(), &Made, Rule.c_str(), &OnChange, this), What);
    Match_.reset(Made);
    // It may have left before the match was there.
    Sent(sd_bus_get_name_creds(Link.Bus(), UniqueName.c_str(), 0, nullptr), What);
}

// A unique name never has a second owner: any change is its end.
int NameWatch::OnChange(sd_bus_message*, void* Self, sd_bus_error*) {
    static_cast<NameWatch*>(Self)->HasLeft_ = true;
    return 0;
}

}  // namespace Tolvar

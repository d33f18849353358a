#include "host/dbus/Introspection.h"

#include <sstream>

#include "host/dbus/DispatchInterface.h"

namespace Tolvar {
namespace {

constexpr std::string_view Heading =
    "<!DOCTYPE node PUBLIC \"-//freedesktop//DTD D-BUS Object Introspection 1.0//EN\"\n"
    "\"http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd\">\n"
    "<node>\n";

// The events are called on the editor's sink; here they show what it has to offer.
constexpr std::string_view OtherInterfaces =
    " <interface name=\"org.tolvar.WaveEditor.__PlayDllClass\">\n"
    "  <signal name=\"MsgBoxOb\">\n"
    "   <arg type=\"s\" name=\"Msg\"/>\n"
    "   <arg type=\"s\" name=\"Ttl\"/>\n"
    "  </signal>\n"
    " </interface>\n"
    " <interface name=\"org.tolvar.WaveEditor.Hosting\">\n"
    "  <method name=\"Advise\">\n"
    "   <arg type=\"o\" name=\"Sink\" direction=\"in\"/>\n"
    "  </method>\n"
    "  <method name=\"Release\"/>\n"
    " </interface>\n"
    " <interface name=\"org.freedesktop.DBus.Properties\">\n"
    "  <method name=\"Get\">\n"
    "   <arg type=\"s\" direction=\"in\"/>\n"
    "   <arg type=\"s\" direction=\"in\"/>\n"
    "   <arg type=\"v\" direction=\"out\"/>\n"
    "  </method>\n"
    "  <method name=\"Set\">\n"
    "   <arg type=\"s\" direction=\"in\"/>\n"
    "   <arg type=\"s\" direction=\"in\"/>\n"
    "   <arg type=\"v\" direction=\"in\"/>\n"
    "  </method>\n"
    "  <method name=\"GetAll\">\n"
    "   <arg type=\"s\" direction=\"in\"/>\n"
    "   <arg type=\"a{sv}\" direction=\"out\"/>\n"
    "  </method>\n"
    " </interface>\n"
    " <interface name=\"org.freedesktop.DBus.Introspectable\">\n"
    "  <method name=\"Introspect\">\n"
    "   <arg type=\"s\" direction=\"out\"/>\n"
    "  </method>\n"
    " </interface>\n";

// One argument to a complete type: a letter, or an array of one.
void WriteArguments(std::ostream& Out, std::string_view Signature, const char* Names,
                    const char* Direction) {
    std::istringstream EachName(Names);
    while (!Signature.empty()) {
        const std::string_view Type = Signature.substr(0, Signature.front() == 'a' ? 2 : 1);
        Signature.remove_prefix(Type.size());
        std::string Name;
        EachName >> Name;
        Out << "   <arg type=\"" << Type << "\" name=\"" << Name << "\" direction=\"" << Direction
            << "\"/>\n";
    }
}

void WriteMember(std::ostream& Out, const DispatchMember& Member) {
    using Kind = DispatchMember::Kind;
    if (Member.Is == Kind::Method) {
        Out << "  <method name=\"" << Member.Name << "\">\n";
        WriteArguments(Out, Member.In, Member.InNames, "in");
        WriteArguments(Out, Member.Out, Member.InNames, "out");
        Out << "  </method>\n";
        return;
    }
    const bool Reads = Member.Is == Kind::Get;
    // Nothing tells of a change: the position changes all the time.
    Out << "  <property name=\"" << Member.Name << "\" type=\"" << (Reads ? Member.Out : Member.In)
        << "\" access=\"" << (Reads ? "read" : "write") << "\">\n"
        << "   <annotation name=\"org.freedesktop.DBus.Property.EmitsChangedSignal\" "
           "value=\"false\"/>\n"
        << "  </property>\n";
}

}  // namespace

std::string IntrospectionOf(std::string_view Path) {
    const std::string_view Whole = Wire::PlayerPath;
    std::ostringstream Out;
    Out << Heading;
    if (Path == Whole) {
        Out << " <interface name=\"" << Wire::PlayerInterface << "\">\n";
        for (const DispatchMember& Member : PlayDllClassMembers())
            WriteMember(Out, Member);
        Out << " </interface>\n" << OtherInterfaces;
    } else {
        if (Path == "/") Path = "";
        if (!Whole.starts_with(Path) || Whole[Path.size()] != '/') return {};
        const std::string_view Rest = Whole.substr(Path.size() + 1);
        Out << " <node name=\"" << Rest.substr(0, Rest.find('/')) << "\"/>\n";
    }
    Out << "</node>\n";
    return Out.str();
}

}  // namespace Tolvar

#include "platform/posix/ConsoleMessageBox.h"

#include <string>

#include "platform/posix/TextLog.h"

namespace Tolvar {
namespace {

bool WritesToStandardError(const Log& Journal) {
    const auto* Text = dynamic_cast<const TextLog*>(&Journal);
    return Text != nullptr && Text->IsStandardError();
}

}  // namespace

ConsoleMessageBox::ConsoleMessageBox(Log& Journal)
    : Journal_(Journal), LogIsStandardError_(WritesToStandardError(Journal)) {}

void ConsoleMessageBox::Show(std::string_view Text) {
    const std::string Line = "message box: " + OneLine(Text);
    if (!LogIsStandardError_) PrintError(Line);
    Journal_.Write(Line);
}

}  // namespace Tolvar

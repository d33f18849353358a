#pragma once

#include "platform/Log.h"
#include "platform/MessageBox.h"

namespace Tolvar {

/// The message box of a server without a desktop: one line on standard error and in the log, at
/// once answered. Where the log is standard error the line stands there once.
class ConsoleMessageBox : public MessageBox {
  public:
    /// Journal stays the caller's.
    explicit ConsoleMessageBox(Log& Journal);
    void Show(std::string_view Text) override;

  private:
    Log& Journal_;
    bool LogIsStandardError_;
};

}  // namespace Tolvar

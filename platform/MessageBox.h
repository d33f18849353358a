#pragma once

#include <string_view>

namespace Tolvar {

/// The modal message box with an OK button and the application's title, in which the block store
/// and the carriers show their own errors. Abstract because a server without a desktop has none.
class MessageBox {
  public:
    virtual ~MessageBox() = default;

    /// Shows Text and returns once it was answered OK. Apartment's thread only.
    virtual void Show(std::string_view Text) = 0;
};

}  // namespace Tolvar

#pragma once

#include <exception>
#include <utility>

namespace Tolvar {

/// Calls Undo when the scope is left by an exception. What Undo itself cannot do stays undone: the
/// first failure is the one to be told.
template <class Call>
class OnFailure {
  public:
    explicit OnFailure(Call ToUndo) : Undo_(std::move(ToUndo)) {}
    ~OnFailure() {
        if (std::uncaught_exceptions() == Before_) return;
        try {
            Undo_();
        } catch (...) {
            return;
        }
    }
    OnFailure(const OnFailure&) = delete;
    OnFailure& operator=(const OnFailure&) = delete;

  private:
    Call Undo_;
    int Before_ = std::uncaught_exceptions();
};

}  // namespace Tolvar

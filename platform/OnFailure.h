#pragma once

#include <exception>
#include <utility>

namespace Tolvar {

/// Calls Undo when the scope is left by an exception. What Undo itself cannot do stays undone: the
/// first failure is the one to be told.
template <class Call>
class OnFailure {
  public:
    explicit OnFailure(Call ToUndo) : Undo(std::move(ToUndo)) {}
    ~OnFailure() {
        if (std::uncaught_exceptions() == Before) return;
        try {
            Undo();
        } catch (...) {
            return;
        }
    }
    OnFailure(const OnFailure&) = delete;
    OnFailure& operator=(const OnFailure&) = delete;

  private:
    Call Undo;
    int Before = std::uncaught_exceptions();
};

}  // namespace Tolvar

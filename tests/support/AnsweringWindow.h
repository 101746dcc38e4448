#pragma once

#include "host/OutModule.h"

#include <memory>

namespace velorine::test {

/// A host's main window as this machine knows windows, with the answers of `answers.send`. Real
/// ones live on a thread of their own.
class AnsweringWindow {
public:
    explicit AnsweringWindow(VelorineHostWindow& answers);
    ~AnsweringWindow();
    AnsweringWindow(const AnsweringWindow&) = delete;
    AnsweringWindow& operator=(const AnsweringWindow&) = delete;

    void* handle() const noexcept; ///< for the module's record

private:
    struct Native;
    std::unique_ptr<Native> native;
};

} // namespace velorine::test

#include "tests/support/AnsweringWindow.h"

namespace velorine::test {

struct AnsweringWindow::Native {
    VelorineHostWindow* window;
};

AnsweringWindow::AnsweringWindow(VelorineHostWindow& answers)
    : native(std::make_unique<Native>(Native{&answers})) {}

AnsweringWindow::~AnsweringWindow() = default;

void* AnsweringWindow::handle() const noexcept {
    return native->window;
}

} // namespace velorine::test

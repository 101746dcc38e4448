#pragma once

#include "foundation/ErrorReport.h"

#include <string>
#include <vector>

namespace velorine::test {

/// Collects the texts for the user while it stands.
class ErrorList final : public ErrorSink {
public:
    ErrorList() { install(this); }
    ~ErrorList() override { install(nullptr); }
    void show(const char* text) override { texts.emplace_back(text); }

    std::vector<std::string> texts;
};

} // namespace velorine::test

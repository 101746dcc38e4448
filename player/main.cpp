#include "player/CommandLine.h"

#include "foundation/ErrorReport.h"

#include <exception>

int main(int argc, char** argv) {
    try {
        return static_cast<int>(velorine::runCommandLine(argc, argv));
    } catch (const std::exception& error) {
        velorine::endWith(error.what());
    }
}

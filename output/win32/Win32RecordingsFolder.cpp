#include "output/RecordingsFolder.h"

namespace velorine {

std::string recordingsFolder() {
    return "d:/velorine/";
}

} // namespace velorine

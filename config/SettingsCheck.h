#pragma once

#include <string>
#include <vector>

namespace velorine {

/// What is odd about a place of the settings, for a person.
struct SettingsRemark {
    int line = 0;        ///< from 1; 0 where there are no lines
    int column = 0;      ///< from 1, in characters
    bool isError = true; ///< false: kept, and without effect
    std::string text;

    friend bool operator==(const SettingsRemark&, const SettingsRemark&) = default;
};

} // namespace velorine

// Texts that the sources of the alarm definitions share.
#pragma once

#include <string>

extern const std::string KNONESTRING;  // stands for an absent text
extern const std::string KSNMPCONF;    // section of the device configuration with the file paths

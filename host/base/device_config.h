// The device configuration that CVRXXmlConfig reads: <root>/conf/device.xml.
//
//     <device>
//         <section name="COMMAND">
//             <item key="CLEAR_ALARM" value="2002"/>
//         </section>
//     </device>
//
// A file is taken over whole or not at all: with an element or attribute that has no place there, a section or key that
// stands there twice, or anything else unclear, it is refused. It is read when a value is first asked for; a fault is
// then an error line in the log, and every value is empty.
//
// Threads: any. Readers see the former file or the new one, never a mixture.
#pragma once

#include <map>
#include <stdexcept>
#include <string>

namespace vrx {

// What is wrong, as "FILE:ROW: reason" (without the row where the file as a whole is at fault).
class DeviceConfigError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

using DeviceConfig = std::map<std::string, std::map<std::string, std::string>>;  // section, key, value

// Reads a file. Throws DeviceConfigError.
DeviceConfig readDeviceConfig(const std::string& path);

// Reads the process's file anew and puts its values in place of the former ones. Throws DeviceConfigError; the former
// values stay then. A main program calls it at start, to end with a clear text, and when it is told that the file has
// changed.
void reloadDeviceConfig();

}  // namespace vrx

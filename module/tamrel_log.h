// Number and message codes that the module passes to the host's loggers.
#pragma once

// The module's number in the host's registry of loggers.
constexpr int TAMREL_LOG_MODULE = 4;

// The first argument of CVRXDebugKitGuard::debug, warn and error. Their meaning beyond this is the host's.
constexpr unsigned long long LOGCODE_GENERAL = 0x1002E;    // errors and warnings, where no other code is named
constexpr unsigned long long LOGCODE_NOTIFY = 0x1002C;     // a notification that could not be handled
constexpr unsigned long long LOGCODE_NO_OBJECT = 0x10014;  // an object or argument that is missing
constexpr unsigned long long LOGCODE_DEBUG = 0xFFFF;       // debug lines

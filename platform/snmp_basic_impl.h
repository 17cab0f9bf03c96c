// Identity of the storage system (the node). Constant while the process runs; callable from any thread.
#pragma once

#include <string>

class CSNMPBasicImpl {
public:
    static const char* getNodeCode();  // null when the host knows none
    static unsigned int getNodeType();

    static int device_type;         // product model number
    static std::string product_sn;  // product serial number
};

std::string GetSystemName();

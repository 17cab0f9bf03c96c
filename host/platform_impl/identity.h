// Identity of the node (platform/snmp_basic_impl.h), from section NODE of the device configuration.
#pragma once

namespace vrx {

// Sets device_type and product_sn from DEVICE_TYPE and PRODUCT_SN (0 and "" where they are missing). Before modules are
// loaded and threads start; the other values need no call.
void loadIdentity();

}  // namespace vrx

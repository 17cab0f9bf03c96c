// vrxctl decode: a TLV package as readable text.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "tools/command.h"

namespace vrx {

// Bytes of a hex text: blanks, line ends, colons and commas between bytes are skipped. Throws std::runtime_error that
// names the place of anything else.
std::vector<unsigned char> bytesOfHex(const std::string& text);

// Writes header, records and cells. False when the bytes are no package: the reason, from the decoder, is written in
// place of the records.
[[nodiscard]] bool printPackage(std::ostream& out, std::vector<unsigned char> bytes);

struct DecodeCommand : Command {
    void define(OptionParser& command) override;
    int run() override;

    std::string hex;
    std::string file = "-";  // standard input
    bool hexFile = false;
};

}  // namespace vrx

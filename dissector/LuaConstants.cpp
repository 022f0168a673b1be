// Writes the Wireshark dissector with the protocol's numbers filled in from
// the one header that holds them, so the dissector never drifts from the link.
//   sorvik-lua-constants TEMPLATE OUTPUT

#include "link/SorvikProtocol.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

namespace {

std::string constantsBlock()
{
    using namespace SorvikProtocol;
    std::ostringstream lua;
    lua << "local C = {\n"
        << "    READ_FUNCTION = " << int(kReadFunction) << ",\n"
        << "    WRITE_FUNCTION = " << int(kWriteFunction) << ",\n"
        << "    HANDSHAKE = { " << int(kHandshake0) << ", " << int(kHandshake1) << " },\n"
        << "    HANDSHAKE_SIZE = " << kHandshakeSize << ",\n"
        << "    REQUEST_HEAD = " << kRequestHeadSize << ",\n"
        << "    REPLY_HEAD = " << kReplyHeadSize << ",\n"
        << "    OFFSET_AREA = " << kOffsetArea << ",\n"
        << "    OFFSET_ADDRESS = " << kOffsetAddress << ",\n"
        << "    OFFSET_LENGTH = " << kOffsetLength << ",\n"
        << "    STRING_BLOCK = " << kStringBlock << ",\n"
        << "    PADDED_REPLY = " << kPaddedReplySize << ",\n"
        << "    STRING_AREA = " << kStringArea << ",\n"
        << "    AREA_NAMES = {";
    for (const Area &area : kAreas)
        lua << " [" << area.code << "] = \"" << area.prefix << "\",";
    lua << " },\n    BIT_AREAS = {";
    for (const Area &area : kAreas)
        if (isBitArea(area.code))
            lua << " [" << area.code << "] = true,";
    // Address factors of every code the area byte can carry; codes left out have 1.
    lua << " },\n    FACTORS = {";
    for (int code = 0; code < 256; ++code)
        if (addressFactor(code) != 1)
            lua << " [" << code << "] = " << addressFactor(code) << ",";
    lua << " },\n}\n";
    return lua.str();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::cerr << "usage: sorvik-lua-constants TEMPLATE OUTPUT\n";
        return 1;
    }
    std::ifstream in(argv[1]);
    if (!in) {
        std::cerr << "sorvik-lua-constants: cannot read " << argv[1] << "\n";
        return 1;
    }
    std::ostringstream out;
    std::string line;
    while (std::getline(in, line))
        out << (line == "-- @CONSTANTS@" ? constantsBlock() : line + "\n");
    std::ofstream file(argv[2]);
    file << out.str();
    return file ? 0 : 1;
}

// recordwriter COUNT SIZE: records COUNT logs with SIZE bytes of text each, and with whatever a
// carrier of lines may be tempted to change.

#include <cstdlib>
#include <string>

#include "zelqcood/log.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    std::string text =
        "\ttab, \"quotes\", back\\slash, 100 % %msg%, #011, \xC3\xA4\xE2\x82\xAC\xF0\x9F\x94\xA7, two\nlines ";
    std::size_t const size = std::strtoul(argv[2], nullptr, 10);
    while (text.size() < size) {
        text += "0123456789 abcdefghijklmnopqrstuvwxyz ";
    }
    for (int i = std::atoi(argv[1]); i > 0; --i) {
        XLog log(0x01, 0x10, 0x2000, "DEL\x7F", XLog::error, "bay \x01\x7F 3");
        log.addData(XMicrocodeLogData(&text[0], text.size(), XMicrocodeLogData::textFormat));
        XLog::Attribute bytes(0x01FF00FE, 0);
        log.addData(XLogData(&bytes, sizeof bytes, 0x10));
        log.log();
    }
}

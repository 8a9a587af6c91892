// A program that reports, for scripts:
// reporter record CLASS [ID TEXT]...  records a log with these items; '@' in a TEXT stands for a zero byte
// reporter trace [HANDLE TEXT]...     writes trace lines
// reporter load COUNT SIZE            records COUNT logs with SIZE bytes of text each, and with whatever a
//                                     carrier of lines may be tempted to change

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "zelqcood/log.h"
#include "zelqplatform/trace_service.h"

namespace {

unsigned numberOf(std::string const& text) {
    return static_cast<unsigned>(std::stoul(text, nullptr, 0));
}

void record(std::vector<std::string> const& arguments) {
    auto const attributes = XLog::error | XLog::logModifyBlock | XLog::Attribute(0x0004, 0);
    XLog log(static_cast<unsigned char>(numberOf(arguments[0])), 0x42, 1, "EVENT", attributes, "id \x1b[31m \xFF");
    for (std::size_t i = 1; i + 1 < arguments.size(); i += 2) {
        std::string bytes = arguments[i + 1];
        std::replace(bytes.begin(), bytes.end(), '@', '\0');
        log.addData(XLogData(bytes.data(), bytes.size(), static_cast<unsigned short>(numberOf(arguments[i]))));
    }
    log.log();
}

void load(unsigned count, std::size_t size) {
    std::string text =
        "\ttab, \"quotes\", back\\slash, 100 % %msg%, #011, \xC3\xA4\xE2\x82\xAC\xF0\x9F\x94\xA7, two\nlines ";
    while (text.size() < size) {
        text += "0123456789 abcdefghijklmnopqrstuvwxyz ";
    }
    for (unsigned i = 0; i < count; ++i) {
        XLog log(0x01, 0x10, 0x2000, "DEL\x7F", XLog::error, "bay \x01\x7F 3");
        log.addData(XMicrocodeLogData(&text[0], text.size(), XMicrocodeLogData::textFormat));
        XLog::Attribute bytes(0x01FF00FE, 0);
        log.addData(XLogData(&bytes, sizeof bytes, 0x10));
        log.log();
    }
}

}  // namespace

int main(int count, char** arguments) {
    std::string const command = count > 2 ? arguments[1] : "";
    std::vector<std::string> const others(arguments + std::min(count, 2), arguments + count);
    if (command == "record") {
        record(others);
    } else if (command == "load" && others.size() == 2) {
        load(numberOf(others[0]), numberOf(others[1]));
    } else if (command == "trace") {
        for (std::size_t i = 0; i + 1 < others.size(); i += 2) {
            xtr_trace_cb(numberOf(others[i]), others[i + 1].c_str());
        }
    } else {
        return 2;
    }
    return 0;
}

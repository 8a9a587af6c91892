// A program that reports, for scripts. "%" and two hexadecimal digits stand for a byte.
// reporter record CLASS [ID TEXT]...   records a log with these items, and prints the service's results
// reporter named EVENT LOGID [ID TEXT]...  the same, with an event name and an id
// reporter trace [HANDLE TEXT]...      writes trace lines
// reporter dump HANDLE LABEL TEXT      dumps the text into the trace; "-" is a null pointer, as TEXT to 7 bytes
// reporter load COUNT SIZE             records COUNT logs with SIZE bytes of text each, and with whatever a
//                                      carrier of lines may be tempted to change

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "zelqcood/log.h"
#include "zelqplatform/trace_service.h"

namespace {

using Arguments = std::vector<std::string>;

unsigned numberOf(std::string const& text) {
    return static_cast<unsigned>(std::stoul(text, nullptr, 0));
}

std::string decoded(std::string text) {
    for (std::size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at + 1)) {
        text.replace(at, 3, 1, static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16)));
    }
    return text;
}

struct TellingLog : XLog {
    using XLog::log;
    using XLog::XLog;
    XLog& log(xlog_record_interface* record, int* src, int* crc) override {
        XLog::log(record, src, crc);
        std::printf("%d %d\n", *src, *crc);
        return *this;
    }
};

void record(Arguments const& arguments, std::size_t firstItem, char const* event, char const* logId) {
    auto const logClass = firstItem == 1 ? static_cast<unsigned char>(numberOf(arguments[0])) : 10;
    auto const attributes = XLog::error | XLog::logModifyBlock | XLog::Attribute(0x0004, 0);
    TellingLog log(static_cast<unsigned char>(logClass), 0x42, 1, event, attributes, logId);
    for (std::size_t i = firstItem; i + 1 < arguments.size(); i += 2) {
        std::string bytes = decoded(arguments[i + 1]);
        log.addData(XLogData(bytes.data(), bytes.size(), static_cast<unsigned short>(numberOf(arguments[i]))));
    }
    static_cast<XLog&>(log).log();
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

int main(int count, char** words) {
    Arguments const arguments(words + (count > 2 ? 2 : count), words + count);
    std::string const command = count > 2 ? words[1] : "";
    if (command == "record") {
        record(arguments, 1, "EVENT", "id \x1b[31m \xFF");
    } else if (command == "named" && count > 3) {
        record(arguments, 2, decoded(arguments[0]).c_str(), decoded(arguments[1]).c_str());
    } else if (command == "trace") {
        for (std::size_t i = 0; i + 1 < arguments.size(); i += 2) {
            xtr_trace_cb(numberOf(arguments[i]), decoded(arguments[i + 1]).c_str());
        }
    } else if (command == "dump" && count == 5) {
        std::string const bytes = decoded(arguments[2]);
        char const* const label = arguments[1] == "-" ? nullptr : arguments[1].c_str();
        bool const isNull = bytes == "-";
        xtr_dump_bytes_cb(numberOf(arguments[0]), label, isNull ? nullptr : bytes.data(), isNull ? 7 : bytes.size());
    } else if (command == "load" && count == 4) {
        load(numberOf(arguments[0]), numberOf(arguments[1]));
    } else {
        return 2;
    }
    return 0;
}

#include "tools/terminal/output.h"

#include <poll.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "common/systemcalls.h"
#include "tools/terminal/terminal.h"

namespace zelq {
namespace {

constexpr std::size_t flushAt = 64 * 1024;

bool wantsColour(ColourMode mode) {
    if (mode != ColourMode::automatic) {
        return mode == ColourMode::always;
    }
    char const* const refused = std::getenv("NO_COLOR");
    return (refused == nullptr || refused[0] == '\0') && isTerminal(STDOUT_FILENO);
}

char const* sequence(Style style) {
    switch (style) {
    case Style::heading: return "\x1b[1m";
    case Style::alarm: return "\x1b[1;31m";
    case Style::faint: return "\x1b[2m";
    case Style::plain: break;
    }
    return "";
}

unsigned codePoint(unsigned char const* bytes, std::size_t length) {
    if (length == 1) {
        return bytes[0];
    }
    unsigned value = bytes[0] & (0xFFU >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        value = value << 6 | (bytes[i] & 0x3FU);
    }
    return value;
}

// The characters after the control characters cannot harm a terminal, but the reader: they make one
// line look like two, or text stand where it does not.
bool isDangerous(unsigned character) {
    return character < 0x20 || (character >= 0x7F && character <= 0x9F) ||  // control characters
           character == 0x2028 || character == 0x2029 ||                    // line ends of another kind
           character == 0x061C || character == 0x200E || character == 0x200F ||
           (character >= 0x202A && character <= 0x202E) ||  // writing direction
           (character >= 0x2066 && character <= 0x2069);
}

}  // namespace

Output::Output(ColourMode mode, bool mayPage) : coloured_(wantsColour(mode)), mayPage_(mayPage) {}

void Output::print(std::string_view text) {
    pending_ += text;
    if (pending_.size() >= flushAt) {
        flush();
    }
}

void Output::print(Style style, std::string_view text) {
    if (coloured_ && style != Style::plain) {
        print(sequence(style));
        print(text);
        print("\x1b[0m");
    } else {
        print(text);
    }
}

// write(2) rather than a stream: a failure is known with its errno, and at the line it came with.
bool Output::flush() {
    if (wantsPager_ && !pending_.empty()) {
        wantsPager_ = false;
        pager_.start();
    }
    std::size_t done = 0;
    int const file = pager_.isRunning() ? pager_.input() : STDOUT_FILENO;
    while (failure_ == 0 && done < pending_.size()) {
        ssize_t const written =
            uninterrupted([&] { return write(file, pending_.data() + done, pending_.size() - done); });
        if (written >= 0) {
            done += static_cast<std::size_t>(written);
        } else {
            failure_ = errno;
        }
    }
    pending_.clear();
    return failure_ == 0;
}

bool Output::finish() {
    flush();
    bool const hadPager = pager_.isRunning();
    if (!pager_.finish()) {
        complain("the pager cannot be run; see ZELQ_PAGER and PAGER, or use --no-pager");
        failure_ = ENOEXEC;
    } else if (hadPager && failure_ == EPIPE) {
        failure_ = 0;
    }
    return failure_ == 0;
}

bool Output::waitWithReader() const {
    // Short enough to look immediate, long enough to cost nothing.
    constexpr int pauseMs = 100;
    pollfd reader = {STDOUT_FILENO, 0, 0};
    return poll(&reader, 1, pauseMs) <= 0 || (reader.revents & POLLERR) == 0;
}

void complain(std::string_view message) {
    std::string const line = "zelq: " + printable(message) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

std::string printable(std::string_view text, bool keepTabs) {
    std::string shown;
    shown.reserve(text.size());
    auto const* const bytes = reinterpret_cast<unsigned char const*>(text.data());
    for (std::size_t i = 0; i < text.size();) {
        if (text.size() - i >= 8 && isPrintableWord(textWord(bytes + i))) {
            shown.append(text, i, 8);
            i += 8;
            continue;
        }
        std::size_t const length = utf8Length(bytes + i, text.size() - i);
        unsigned const character = length == 0 ? bytes[i] : codePoint(bytes + i, length);
        if (length == 0 || (length == 1 && isDangerous(character) && !(keepTabs && character == '\t'))) {
            shown += "\\x" + hexDigits(character, 2);
        } else if (length > 1 && isDangerous(character)) {
            shown += "\\u" + hexDigits(character, 4);
        } else {
            shown.append(text, i, length);
        }
        i += std::max<std::size_t>(length, 1);
    }
    return shown;
}

std::size_t columns(std::string_view text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string padded(std::string text, std::size_t width) {
    std::size_t const used = columns(text);
    text.append(used < width ? width - used : 0, ' ');
    return text;
}

void appendHexRow(std::string_view row, std::size_t width, std::string& to) {
    std::string characters;
    for (std::size_t i = 0; i < width; ++i) {
        to += i != 0 && i % 8 == 0 ? " " : "";
        if (i < row.size()) {
            auto const byte = static_cast<unsigned char>(row[i]);
            to += hexDigits(byte, 2) + " ";
            characters += isPrintableAscii(byte) ? row[i] : '.';
        } else {
            to += "   ";
        }
    }
    to += " |" + characters + "|\n";
}

void appendHexDump(std::string_view bytes, std::size_t indent, std::string& to) {
    // Four digits keep a line below 80 columns; longer items get what they need.
    int const digits = bytes.size() > 0x10000 ? 6 : 4;
    for (std::size_t offset = 0; offset < bytes.size(); offset += 16) {
        to.append(indent, ' ');
        to += hexDigits(offset, digits) + "  ";
        appendHexRow(bytes.substr(offset, 16), 16, to);
    }
}

}  // namespace zelq

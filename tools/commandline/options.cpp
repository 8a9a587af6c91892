#include "tools/commandline/options.h"

#include <charconv>
#include <limits>

#include <CLI/CLI.hpp>

namespace zelq {
void addValue(CLI::App& command, char const* name, char const* what, char const* type, TakeText const& take) {
    auto const takeUnlessEmpty = [take](std::string const& text) {
        if (!text.empty()) {
            take(text);
        }
    };
    command.add_option_function<std::string>(name, takeUnlessEmpty, what)->type_name(type);
}

void addRepeatable(CLI::App& command, char const* name, std::string const& what, char const* type,
                   TakeText const& take) {
    auto const takeEach = [take](std::vector<std::string> const& texts) {
        for (std::string const& text : texts) {
            take(text);
        }
    };
    command.add_option_function<std::vector<std::string>>(name, takeEach, what)
        ->allow_extra_args(false)
        ->type_name(type);
}

void addFormat(CLI::App& command, char const* what, std::vector<std::string> const& formats, TakeText const& take) {
    command.add_option_function<std::string>("-o,--output", take, what)
        ->check(CLI::IsMember(formats).description(""))
        ->type_name("FORMAT");
}

void addNewest(CLI::App& command, char const* what, std::optional<std::size_t>& newest) {
    auto const take = [&newest](std::string const& text) {
        newest = text == "all" ? std::numeric_limits<std::size_t>::max() : parseNumber(text, 10);
        if (!newest.has_value() && !text.empty()) {
            throw Failure{exitUsage, "not a number of lines: '" + text + "'"};
        }
    };
    command.add_option_function<std::string>("-n,--lines", take, what)
        ->expected(0, 1)
        ->default_str("10")
        ->type_name("N");
}

std::optional<std::uint64_t> parseNumber(std::string_view text, int base, int bits) {
    std::uint64_t number = 0;
    char const* const end = text.data() + text.size();
    auto const [behind, failure] = std::from_chars(text.data(), end, number, base);
    bool const isNumber = failure == std::errc() && behind == end && (bits == 64 || number >> bits == 0);
    return isNumber ? std::optional(number) : std::nullopt;
}

std::uint64_t parseBytes(std::string const& text) {
    constexpr std::string_view units = "KMG";
    std::size_t const unit = text.empty() ? std::string::npos : units.find(text.back());
    bool const hasUnit = unit != std::string::npos;
    int const shift = hasUnit ? 10 * static_cast<int>(unit + 1) : 0;
    std::string_view const digits = std::string_view(text).substr(0, text.size() - (hasUnit ? 1 : 0));
    std::optional<std::uint64_t> const number = parseNumber(digits, 10, 64 - shift);
    if (!number.has_value()) {
        throw Failure{exitUsage, "not a number of bytes: '" + text + "' (such as 100000, 500K, 20M, 1G)"};
    }
    return *number << shift;
}

}  // namespace zelq

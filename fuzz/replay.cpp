// ENTRY_replay [FILE...]             runs the entry on its seeds, then on the input in each file
// ENTRY_replay --damaged [FILE...]   the same, and on each seed cut after each byte, and with each byte changed
// ENTRY_replay --write-seeds FOLDER  writes the seeds as files, for a fuzzer to begin with

#include "entry.h"
#include "support/files.h"

static void run(std::string const& name, std::string const& input) {
    std::fprintf(stderr, "%s\n", name.c_str());
    // A copy of just this size: one byte too far is seen by a sanitizer.
    std::vector<std::uint8_t> const bytes(input.begin(), input.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

static void runDamaged(std::string const& name, std::string const& input) {
    for (std::size_t at = 0; at < input.size(); ++at) {
        std::string const place = " at " + std::to_string(at);
        run(name + " cut" + place, input.substr(0, at));
        for (char const wrong : {'\0', '\7', '\xFF'}) {
            std::string damaged = input;
            damaged[at] = wrong;
            run(name + " changed" + place, damaged);
        }
    }
}

int main(int count, char** arguments) {
    std::vector<std::string> const inputs = seeds();
    if (count == 3 && arguments[1] == std::string("--write-seeds")) {
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            std::ofstream(fs::path(arguments[2]) / ("seed" + std::to_string(i)), std::ios::binary) << inputs[i];
        }
        return 0;
    }
    bool const isDamaged = count > 1 && arguments[1] == std::string("--damaged");
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        run("seed " + std::to_string(i), inputs[i]);
        if (isDamaged) {
            runDamaged("seed " + std::to_string(i), inputs[i]);
        }
    }
    for (int i = isDamaged ? 2 : 1; i < count; ++i) {
        require(fs::exists(arguments[i]), arguments[i]);
        run(arguments[i], contents(arguments[i]));
    }
    return 0;
}

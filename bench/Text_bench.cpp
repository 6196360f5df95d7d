// Variable/value registries: get and change at several sizes, beside a bare program of the same system calls; and what
// detached tracing costs.
#include <genreg/genreg.h>

#include <cstring>
#include <fstream>

#include "Bare.h"
#include "Measure.h"

namespace {

void writeRegistry(const std::string& path, int lines) {
    std::ofstream out(path);
    for (int i = 0; i < lines; ++i) {
        out << "variable" << i << " = value" << i << (i % 10 == 0 ? "   # tenth" : "") << "\n";
    }
}

GenRegVarValRecord record(char* variable, char* value) {
    GenRegVarValRecord made;
    made.contains = VARVAL_HAS_PAIR;
    made.comment = nullptr;
    made.variable = variable;
    made.value = value;
    return made;
}

void benchSize(const std::string& directory, int lines) {
    const bare::Paths paths(directory, "registry" + std::to_string(lines));
    writeRegistry(paths.registry, lines);
    const auto size = static_cast<std::size_t>(std::filesystem::file_size(paths.registry));
    std::string name = "variable" + std::to_string(lines - 1);
    unsigned int rc = 0;
    GenRegVarVal registry(paths.registry.c_str(), &rc);

    const auto bareGet = [&] {
        bare::get(paths, size, [](const std::vector<char>& content) {
            bare::require(std::memchr(content.data(), '\0', content.size()) == nullptr);
        });
    };
    const auto get = [&] {
        GenRegVarValRecord key = record(name.data(), nullptr);
        GenRegVarValRecord found;
        bare::require(registry.Get(VARVAL_MATCH_VARIABLE, &key, &found) == 0);
    };
    const int calls = lines >= 10000 ? 20 : 200;
    measure::report("get, " + std::to_string(lines) + " lines", {{"bare", bareGet}, {"genreg", get}}, 31, calls);

    std::string value = "value" + std::to_string(lines - 1);
    char flip = '0';
    const auto edit = [&](std::vector<char>& content) {
        flip = flip == '0' ? '1' : '0';
        content[content.size() - 2] = flip;
    };
    const auto bareChange = [&] { bare::change(paths, size, edit); };
    const auto change = [&] {
        value.back() = value.back() == '8' ? '9' : '8';
        GenRegVarValRecord key = record(name.data(), nullptr);
        GenRegVarValRecord wanted = record(name.data(), value.data());
        bare::require(registry.Change(VARVAL_MATCH_VARIABLE, &key, &wanted) == 0);
    };
    measure::report("durable change, " + std::to_string(lines) + " lines", {{"bare", bareChange}, {"genreg", change}},
                    31, 5);
}

}  // namespace

int main() {
    const measure::Scratch scratch;
    std::printf("Variable/value registry, last line of the file; bare: the same system calls and one scan\n");
    for (const int lines : {10, 100, 1000, 10000}) {
        benchSize(scratch.path(), lines);
    }
    // An accessor does nothing but ask whether it is traced: its cost is the tracing's, twice over.
    unsigned int rc = 0;
    GenRegVarVal registry((scratch.path() + "/none").c_str(), &rc);
    const std::vector<double> traced = measure::inTurns(
        {{"traced", [&] { bare::require(registry.isFeatureSet(REG_FEATURE_DEFERRED_COMMIT)); }}}, 31, 100000);
    std::printf("detached tracing of one function: at most %.1f ns (a whole accessor call)\n", traced[0] * 1000);
    return 0;
}

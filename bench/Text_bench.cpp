// Variable/value registries: look-up, list and change at several sizes; and what detached tracing costs.
#include <genreg/genreg.h>

#include <cstring>
#include <fstream>

#include "Bare.h"
#include "Measure.h"

#ifdef RVN_HAVE_AUGEAS
#include <augeas.h>
#endif

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

#ifdef RVN_HAVE_AUGEAS

// Reads the file with the form that is nearest, and asks for the value.
void augeasGet(const std::string& path, const std::string& name) {
    augeas* const tree = aug_init(nullptr, nullptr, AUG_NO_LOAD | AUG_NO_MODL_AUTOLOAD);
    bare::require(tree != nullptr);
    const char* value = nullptr;
    bare::require(aug_set(tree, "/augeas/load/S/lens", "Simplevars.lns") == 0 &&
                  aug_set(tree, "/augeas/load/S/incl", path.c_str()) == 0 && aug_load(tree) == 0 &&
                  aug_get(tree, ("/files" + path + "/" + name).c_str(), &value) == 1 && value != nullptr);
    aug_close(tree);
}

#endif

void benchReading(const bare::Paths& paths, std::size_t size, GenRegVarVal& registry, int lines) {
    std::string name = "variable" + std::to_string(lines - 1);
    const auto bareGet = [&] { bare::get(paths, size, bare::lookAtLines); };
    std::vector<measure::Rival> lookers = {{"limit", bareGet},
                                           {"library", [&] {
                                                GenRegVarValRecord key = record(name.data(), nullptr);
                                                GenRegVarValRecord found;
                                                bare::require(registry.Get(VARVAL_MATCH_VARIABLE, &key, &found) == 0);
                                            }}};
#ifdef RVN_HAVE_AUGEAS
    constexpr int MOST_PARSED = 1000;
    if (lines <= MOST_PARSED && measure::Traced::wanted().empty()) {
        lookers.push_back({"Augeas opened", [&] { augeasGet(paths.registry, name); }});
    }
#endif
    measure::row({"variable: look up", lines}, lookers);

    unsigned int rc = 0;
    GenRegVarVal keeps(paths.registry.c_str(), &rc);
    measure::keptRow({"variable: look up, kept", lines}, keeps, paths.registry, [&] {
        GenRegVarValRecord key = record(name.data(), nullptr);
        GenRegVarValRecord found;
        bare::require(keeps.Get(VARVAL_MATCH_VARIABLE, &key, &found) == 0);
    });

    const auto listAll = [&] {
        GenRegVarValRecord found;
        bare::require(registry.OpenScan() == 0);
        int count = 0;
        while (registry.GetNext(0, nullptr, &found) == 0) {
            ++count;
        }
        bare::require(registry.CloseScan() == 0 && count == lines);
    };
    measure::row({.operation = "variable: list, each", .size = lines, .each = static_cast<double>(lines)},
                 {{"library", listAll}});
}

void benchChanging(const bare::Paths& paths, std::size_t size, GenRegVarVal& registry, int lines) {
    std::string name = "variable" + std::to_string(lines - 1);
    std::string value = "value" + std::to_string(lines - 1);
    char flip = '0';
    const auto edit = [&](std::vector<char>& content) {
        flip = flip == '0' ? '1' : '0';
        content[content.size() - 2] = flip;
    };
    const auto change = [&] {
        value.back() = value.back() == '8' ? '9' : '8';
        GenRegVarValRecord key = record(name.data(), nullptr);
        GenRegVarValRecord wanted = record(name.data(), value.data());
        bare::require(registry.Change(VARVAL_MATCH_VARIABLE, &key, &wanted) == 0);
    };
    measure::row({"variable: change", lines},
                 {{"limit", [&] { bare::change(paths, size, edit); }}, {"library", change}});
}

void benchSize(const std::string& directory, int lines) {
    constexpr int MOST_CHANGED = 10000;
    const bare::Paths paths(directory, "registry" + std::to_string(lines));
    writeRegistry(paths.registry, lines);
    const auto size = static_cast<std::size_t>(std::filesystem::file_size(paths.registry));
    unsigned int rc = 0;
    GenRegVarVal registry(paths.registry.c_str(), &rc);
    bare::require(rc == 0);
    benchReading(paths, size, registry, lines);
    if (lines <= MOST_CHANGED) {
        benchChanging(paths, size, registry, lines);
    }
}

}  // namespace

int main(int count, char** arguments) {
    measure::begin(count, arguments);
    const measure::Scratch scratch;
    for (const int lines : {10, 100, 1000, 10000, 100000}) {
        benchSize(scratch.path(), lines);
    }
    // An accessor does nothing but ask whether it is traced: its cost is the tracing's, twice over.
    unsigned int rc = 0;
    GenRegVarVal registry((scratch.path() + "/none").c_str(), &rc);
    constexpr int ACCESSES = 10000;
    measure::row({.operation = "tracing, detached", .size = 0, .each = ACCESSES},
                 {{"library", [&] {
                       for (int i = 0; i < ACCESSES; ++i) {
                           bare::require(registry.isFeatureSet(REG_FEATURE_DEFERRED_COMMIT));
                       }
                   }}});
    return 0;
}

#include "base/Description.h"

#include <algorithm>

#include "base/GlobalOptions.h"

namespace tool {
namespace {

// Takes down what is declared, and binds nothing.
class Scribe final : public Parser {
public:
    explicit Scribe(DescribedCommand& command) : command_(command) {}

    void required(const std::string& name, std::string& /*word*/, const std::string& help) override {
        command_.words.push_back({name, help, true, false});
    }
    void optional(const std::string& name, std::string& /*word*/, const std::string& help) override {
        command_.words.push_back({name, help, false, false});
    }
    void optionalFile(std::string& /*file*/, const std::string& help) override {
        command_.words.push_back({"FILE", help, false, false});
    }
    void handedOver(const std::string& name, bool isRequired, const std::function<void(const std::string& word)>&,
                    const std::string& help) override {
        command_.words.push_back({name, help, isRequired, false});
    }
    void words(const std::string& name, std::vector<std::string>& /*all*/, const std::string& help) override {
        command_.words.push_back({name, help, false, true});
    }
    void oneWord(const std::string& name, std::vector<std::string>& /*none*/, const std::string& help) override {
        command_.words.push_back({name, help, false, false});
    }
    void option(const std::string& name, const std::string& what, std::string& /*value*/,
                const std::string& help) override {
        put(name, what, {}, help);
    }
    void option(const std::string& name, const std::string& what, std::optional<std::string>& /*value*/,
                const std::string& help) override {
        put(name, what, {}, help);
    }
    void choice(const std::string& name, const std::string& what, const std::vector<std::string>& choices,
                std::string& /*chosen*/, const std::string& help) override {
        put(name, what, choices, help);
    }
    void flag(const std::string& name, bool& /*given*/, const std::string& help) override { put(name, "", {}, help); }
    void footer(const std::string& text) override { command_.footer = text; }

private:
    // "-n,--dry-run"
    void put(const std::string& names, const std::string& what, const std::vector<std::string>& choices,
             const std::string& help) {
        DescribedOption option{{}, what, choices, help};
        for (std::size_t at = 0; at <= names.size();) {
            const std::size_t end = std::min(names.find(',', at), names.size());
            option.names.push_back(names.substr(at, end - at));
            at = end + 1;
        }
        command_.options.push_back(std::move(option));
    }

    DescribedCommand& command_;
};

}  // namespace

bool DescribedOption::isCalled(std::string_view name) const {
    return std::find(names.begin(), names.end(), name) != names.end();
}

DescribedCommand describe(const Command& command) {
    DescribedCommand described{std::string(command.name), std::string(command.summary), {}, {}, command.uses, {}};
    Scribe scribe(described);
    (void)command.declare(scribe);
    return described;
}

DescribedCommand describeHelp() {
    return {"help", "the help of the tool or a command", {{"COMMAND", "the words of the command", false, true}}, {}, 0,
            {}};
}

std::vector<DescribedOption> describeGlobalOptions(unsigned int uses) {
    DescribedCommand all;
    Scribe scribe(all);
    Options options;
    OutputStyle style;
    GivenOptions given{&options, &style, std::nullopt};
    for (const GlobalOption& option : globalOptions()) {
        if (option.uses == 0 || (option.uses & uses) != 0) {
            option.declare(scribe, given);
        }
    }
    all.options.push_back({{"-h", "--help"}, "", {}, "print the help and exit"});
    all.options.push_back({{"-V", "--version"}, "", {}, "print the version and exit"});
    return all.options;
}

}  // namespace tool

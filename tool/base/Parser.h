// What a command declares of its command line: where its words go. The help and the messages follow from it. Whatever
// is bound here must outlive the parsing.
//
// The library that parses is known to Command.cpp alone.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tool {

class Parser {
public:
    // Operands, in their order: one word, which must be there or need not.
    virtual void required(const std::string& name, std::string& word, const std::string& help) = 0;
    virtual void optional(const std::string& name, std::string& word, const std::string& help) = 0;
    // A FILE that need not be given. An empty one is refused: a script whose variable is empty does not mean the
    // registry that is meant when there is none.
    virtual void optionalFile(std::string& file, const std::string& help) = 0;
    // One word, which is handed over.
    virtual void handedOver(const std::string& name, bool isRequired,
                            const std::function<void(const std::string& word)>& take, const std::string& help) = 0;
    // As many words as there are; one at most.
    virtual void words(const std::string& name, std::vector<std::string>& all, const std::string& help) = 0;
    virtual void oneWord(const std::string& name, std::vector<std::string>& none, const std::string& help) = 0;

    // Options with a value, which the help calls as `what` says.
    virtual void option(const std::string& name, const std::string& what, std::string& value,
                        const std::string& help) = 0;
    virtual void option(const std::string& name, const std::string& what, std::optional<std::string>& value,
                        const std::string& help) = 0;
    virtual void choice(const std::string& name, const std::string& what, const std::vector<std::string>& choices,
                        std::string& chosen, const std::string& help) = 0;
    virtual void flag(const std::string& name, bool& given, const std::string& help) = 0;

    // Stands at the end of the help.
    virtual void footer(const std::string& text) = 0;

protected:
    ~Parser() = default;
};

}  // namespace tool

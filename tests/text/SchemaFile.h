// What the tests of the line forms share: a registry in a directory of its own, random files, and the check that the
// look-up which judges a line by its first field answers as the one that parses every line.
#pragma once

#include <genreg/GenRegText.h>

#include <random>
#include <string>
#include <vector>

#include "../posix/Scratch.h"

class SchemaFile : public Scratch {
protected:
    [[nodiscard]] std::string registry() const { return path("registry"); }
    void write(const std::string& text) const {
        std::filesystem::remove(registry());  // truncating would wait for the disk
        (void)Scratch::write("registry", text);
    }
    [[nodiscard]] std::string read() const { return Scratch::read(registry()); }
};

inline std::string textOf(const char* text) {
    return text != nullptr ? text : "(null)";
}

class Dice {
public:
    explicit Dice(unsigned int seed) : engine_(seed) {}

    std::size_t below(std::size_t bound) { return engine_() % bound; }
    template <typename List>
    const auto& oneOf(const List& list) {
        return list[below(std::size(list))];
    }
    std::string join(const std::vector<std::string>& pieces, std::size_t most) {
        std::string text;
        for (std::size_t count = below(most + 1); count > 0; --count) {
            text += oneOf(pieces);
        }
        return text;
    }
    std::string word(const std::string& letters, std::size_t least, std::size_t most) {
        std::string text;
        for (std::size_t count = least + below(most - least + 1); count > 0; --count) {
            text += oneOf(letters);
        }
        return text;
    }

private:
    std::mt19937 engine_;
};

// The same schema without its judgement by the first field.
template <typename Schema>
class Plain : public Schema {
public:
    using Schema::Schema;
    void judgeByParsing() noexcept { this->lineMayMatch = nullptr; }
};

// Every answer of a look-up, a scan and, as it syncs the disk, a delete now and then, as one text.
template <typename Schema, typename Record, typename Describe>
std::string answersOf(bool plain, const std::string& path, unsigned long feature, unsigned long mask, Record key,
                      bool deletes, Describe describe) {
    unsigned int rc = 0;
    Plain<Schema> schema(path.c_str(), &rc);
    if (plain) {
        schema.judgeByParsing();
    }
    if (feature != 0) {
        (void)schema.setFeature(feature);
    }
    Record found = {};
    rc = schema.Get(mask, &key, &found);
    std::string answers = std::to_string(rc) + describe(found);
    (void)schema.OpenScan();
    do {
        rc = schema.GetNext(mask, &key, &found);
        answers += "|" + std::to_string(rc) + describe(found);
    } while (rc == 0);
    (void)schema.CloseScan();
    return deletes ? answers + "|" + std::to_string(schema.Delete(mask, &key)) : answers;
}

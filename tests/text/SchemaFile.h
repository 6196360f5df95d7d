// What the tests of the line forms share: a registry in a folder of its own, random texts, and the check that the
// look-up which judges a line by its first field answers as the one that parses every line.
#pragma once

#include <genreg/GenRegText.h>

#include <cstring>
#include <random>

#include "support/Scratch.h"

inline std::string textOf(const char* text) {
    return text != nullptr ? text : "(null)";
}

// The answer of ParseLine and the record.
template <typename Schema, typename Record>
std::string parsedLine(const std::string& line, std::string (*describe)(const Record&)) {
    Record record;
    std::memset(static_cast<void*>(&record), 'x', sizeof record);
    const unsigned int rc = Schema::ParseLine(&record, line.c_str());
    return std::to_string(rc) + describe(record);
}

// The line that FormatLine writes over the old one, or its code.
template <typename Schema, typename Record>
std::string formattedLine(Record record, const std::string& old = "") {
    constexpr std::size_t GUARD = 16;
    std::string line = old + '\0';
    line.resize(REG_LINE_SIZE + GUARD, '~');
    const unsigned int rc = Schema::FormatLine(&record, line.data());
    EXPECT_EQ(line.substr(REG_LINE_SIZE), std::string(GUARD, '~'));
    return rc == 0 ? line.c_str() : genregCodeName(rc);
}

class Dice {
public:
    explicit Dice(unsigned int seed) : engine_(seed) {}

    std::size_t below(std::size_t bound) { return engine_() % bound; }
    template <typename List>
    const auto& oneOf(const List& list) {
        return list[below(std::size(list))];
    }
    // So many pieces, or letters, of the list.
    template <typename List>
    std::string join(const List& list, std::size_t least, std::size_t most) {
        std::string text;
        for (std::size_t count = least + below(most - least + 1); count > 0; --count) {
            text += oneOf(list);
        }
        return text;
    }

private:
    std::mt19937 engine_;
};

template <typename Record>
struct JudgedForm {
    unsigned int seed;
    std::vector<std::string> pieces;  // of which files are made
    unsigned long features;           // set in half of the rounds
    Record (*key)(Dice& dice);
    std::string (*describe)(const Record&);
};

class SchemaFile : public Scratch {
protected:
    [[nodiscard]] std::string registry() const { return path("registry"); }
    [[nodiscard]] std::string content() const { return read("registry"); }
    void content(const std::string& text) const {
        remove("registry");  // truncating would wait for the disk
        write("registry", text);
    }

    template <typename Schema, typename Record>
    void expectJudgedAsParsed(const JudgedForm<Record>& form) const {
        Dice dice(form.seed);
        int found = 0;
        for (int round = 0; round < 4000; ++round) {
            static const std::vector<std::string> TAILS = {"", "", "a", "a\\\n"};  // the last is continued by nothing
            const std::string text = dice.join(form.pieces, 0, 14) + dice.oneOf(TAILS);
            const Record key = form.key(dice);
            const unsigned long mask = dice.below(8) == 0 ? ~0UL : dice.below(16);
            const bool keeps = dice.below(2) == 0;
            const unsigned long features = dice.below(2) * form.features;
            std::string answers[2];
            for (const int plain : {0, 1}) {
                content(text);
                unsigned int rc = 0;
                Plain<Schema> schema(registry().c_str(), &rc);
                if (plain == 1) {
                    schema.judgeByParsing();
                }
                (void)schema.KeepLines(keeps);
                if (features != 0) {
                    (void)schema.setFeature(features);
                }
                answers[plain] = answersOf(schema, mask, key, form.describe);
                // A delete syncs the disk, so there is one now and then.
                answers[plain] += round % 20 == 0 ? deleted(schema, mask, key) : "";
            }
            ASSERT_EQ(answers[0], answers[1]) << text;
            found += answers[0][0] == '0' ? 1 : 0;
        }
        EXPECT_GT(found, 100);
    }

private:
    // The same schema without its judgement by the first field.
    template <typename Schema>
    class Plain : public Schema {
    public:
        using Schema::Schema;
        void judgeByParsing() noexcept { this->lineMayMatch = nullptr; }
    };

    // Every answer of a look-up and a scan.
    template <typename Schema, typename Record>
    static std::string answersOf(Schema& schema, unsigned long mask, Record key,
                                 std::string (*describe)(const Record&)) {
        Record found = {};
        unsigned int rc = schema.Get(mask, &key, &found);
        std::string answers = std::to_string(rc) + describe(found);
        (void)schema.OpenScan();
        do {
            rc = schema.GetNext(mask, &key, &found);
            answers += "|" + std::to_string(rc) + describe(found);
        } while (rc == 0);
        (void)schema.CloseScan();
        return answers;
    }
    template <typename Schema, typename Record>
    std::string deleted(Schema& schema, unsigned long mask, Record key) const {
        return "|" + std::to_string(schema.Delete(mask, &key)) + "|" + content();
    }
};

// Any text as a line of a services file: what is parsed, written and parsed again is the same record, and what is
// written of that is the same line, but for the blank that each writing puts before a comment.
//
// Not claimed: a line of blanks alone, which is no record; its writing would make it a blank line, which is one. A name
// whose second field has no slash, which no search by protocol finds.
#include <genreg/GenRegServices.h>
#include <netinet/in.h>

#include <set>
#include <utility>
#include <vector>

#include "SchemaLine.h"

namespace {

using Line = SchemaLine<GenRegServices, GenRegServicesRecord>;

// Writing puts in at most two tabs for a blank, four before a comment, a blank behind its sign, and a port that was
// negative.
constexpr std::size_t MOST_GROWTH = 16;

// As it is stored on this machine.
const unsigned int PORT_77 = htons(77);

// What stands before the comment, word by word.
std::vector<std::string> wordsOf(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    for (const char c : line.substr(0, line.find('#')) + "\n") {
        if (std::strchr(" \t\r\n", c) == nullptr) {
            word += c;
        } else if (!word.empty()) {
            words.push_back(std::exchange(word, ""));
        }
    }
    return words;
}

// Those of a record whose list is sound.
std::vector<std::string> aliasesOf(const GenRegServicesRecord& record) {
    std::vector<std::string> aliases;
    if (record.aliases == nullptr) {
        return aliases;
    }
    claim(record.aliases == record.aliasTable, "the aliases stand in the table");
    while (aliases.size() < std::size(record.aliasTable) && record.aliases[aliases.size()] != nullptr) {
        const char* const alias = record.aliases[aliases.size()];
        claimInside(record.line, {alias});
        aliases.emplace_back(alias);
    }
    claim(!aliases.empty() && aliases.size() < std::size(record.aliasTable), "the list has an end");
    return aliases;
}

void claimSound(const GenRegServicesRecord& record) {
    claimInside(record.line, {record.comment, record.name, record.protocol});
    claim(record.flags <= (SERVICES_HAS_COMMENT | SERVICES_HAS_NAME), "no other flag is set");
    claim((record.name != nullptr) == ((record.flags & SERVICES_HAS_NAME) != 0), "a name has its flag");
    claim(record.comment == nullptr || (record.flags & SERVICES_HAS_COMMENT) != 0, "a comment has its flag");
    claim(record.name != nullptr || record.protocol == nullptr, "a protocol has a name");
    claim(record.port <= 0xffff && (record.port == 0 || record.protocol != nullptr), "a port has its protocol");
    for (const char c : record.comment != nullptr ? std::string(record.comment) : std::string()) {
        claim(c == '\t' || (c >= ' ' && c <= '~'), "a comment is printable");
    }
}

// The record, and what was answered, are what the words of the line say.
void claimFitting(unsigned int rc, const GenRegServicesRecord& record, const std::vector<std::string>& words) {
    static const std::set<std::string> WITH_ALIASES = {"udp", "tcp", "ddp", "divert", "sctp"};
    constexpr std::size_t MOST_WORDS = 2 + 127;
    if (rc == REG_BUFFER_TOO_SMALL) {
        claim(words.size() > MOST_WORDS && record.flags == 0, "too many aliases leave nothing");
        return;
    }
    claim(textOf(record.name) == (words.empty() ? "(none)" : words[0]), "the first word is the name");
    claim(rc == (words.size() == 1 ? unsigned{REG_SERVICE_WITHOUT_PORT} : 0U), "only a name alone is refused");
    const std::size_t slash = words.size() < 2 ? std::string::npos : words[1].find('/');
    const std::string protocol = slash == std::string::npos ? "(none)" : words[1].substr(slash + 1);
    claim(textOf(record.protocol) == protocol, "behind the slash stands the protocol");
    const bool named = WITH_ALIASES.count(protocol) != 0;
    claim(aliasesOf(record) == (named ? std::vector(words.begin() + 2, words.end()) : std::vector<std::string>()),
          "the other words are the aliases");
}

void claimSame(const GenRegServicesRecord& again, const GenRegServicesRecord& record) {
    claim(again.flags == record.flags, "it holds as much");
    claim(textOf(again.name) == textOf(record.name), "the name is the same");
    claim(again.port == record.port, "the port is the same");
    claim(textOf(again.protocol) == textOf(record.protocol), "the protocol is the same");
    claim(aliasesOf(again) == aliasesOf(record), "the aliases are the same");
    if ((record.flags & SERVICES_HAS_COMMENT) != 0) {
        const std::string comment = record.comment != nullptr ? record.comment : "";
        claim(textOf(again.comment) == " " + comment, "the comment gains a blank");
    }
}

// The line as the next writing makes it.
std::string withBlank(std::string line) {
    const std::size_t sign = line.find('#');
    return sign == std::string::npos ? line : line.insert(sign + 1, " ");
}

// The line as it is kept: nothing asked, nothing changed; one field asked, one changed.
void keepTheRest(Line& schema) {
    const Line::Reading kept = schema.read(schema.line(), GenRegServices::ParseKeptLine);
    const GenRegServicesRecord& record = *kept.record;
    schema.claimStays({GenRegServices::ParseKeptLine, GenRegServices::ParseLine});
    const std::vector<std::string> words = wordsOf(schema.text());
    const auto name = [](GenRegServicesRecord& wanted, char* word) { wanted.name = word; };
    schema.claimOnlyThatChanges(record.name, name, GenRegServices::ParseKeptLine, false);
    const auto port = [](GenRegServicesRecord& wanted, char*) { wanted.port = PORT_77; };
    schema.claimOnlyThatChanges(words[1].substr(0, words[1].find('/')), port, GenRegServices::ParseKeptLine, false);
    const std::size_t aliases = aliasesOf(record).size();
    for (const std::size_t i :
         aliases == 0 ? std::set<std::size_t>() : std::set{std::size_t{0}, aliases / 2, aliases - 1}) {
        const auto alias = [i](GenRegServicesRecord& wanted, char* word) { wanted.aliasTable[i] = word; };
        schema.claimOnlyThatChanges(record.aliases[i], alias, GenRegServices::ParseKeptLine, false);
    }
    schema.claimOnlyCommentChanges(*kept.record, &GenRegServicesRecord::flags, SERVICES_HAS_NAME);
}

void searchIt(Line& schema) {
    for (std::string name : schema.namesInSight()) {
        GenRegServicesRecord key = {};
        key.name = name.data();
        key.port = PORT_77;
        key.protocol = const_cast<char*>("tcp");
        key.comment = const_cast<char*>(" c");
        for (const unsigned long flags : {0UL, SERVICES_HAS_COMMENT, SERVICES_HAS_NAME}) {
            key.flags = flags;
            schema.claimPassedOverRightly(key);
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    Line continued(bytes, size, true);
    searchIt(continued);
    Line schema(bytes, size, false);
    searchIt(schema);
    const auto [rc, record] = schema.read(schema.line());
    claimSound(*record);
    claimFitting(rc, *record, wordsOf(schema.text()));
    if (rc != 0 || record->flags == 0) {
        return 0;
    }
    if (record->protocol != nullptr) {
        keepTheRest(schema);
    }
    const bool searchable = record->name == nullptr || record->protocol != nullptr;
    if (searchable) {
        schema.claimFound(*record, schema.line(), *record);
    }
    const Line::Writing written = Line::write(*record, schema.text());
    if (record->name != nullptr && record->port == 0) {
        claim(written.rc == REG_FORMAT_PORT_MISSING, "without a port nothing is written");
        return 0;
    }
    if (written.rc != 0) {
        claim(written.rc == REG_LINE_TOO_LONG && schema.text().size() + MOST_GROWTH >= REG_LINE_SIZE,
              "a record that was read can be written");
        return 0;
    }
    claim(Line::write(*record).line == written.line, "a new line is written as one over another");
    const Line::Reading again = schema.read(written.line);
    claim(again.rc == 0, "what was written can be read");
    claimSound(*again.record);
    claimSame(*again.record, *record);
    if (record->name != nullptr) {
        schema.claimFound(*record, written.line, *again.record);
    }
    const Line::Writing settled = Line::write(*again.record);
    claim(settled.rc == REG_LINE_TOO_LONG || settled.line == withBlank(written.line), "the layout settles");
    return 0;
}

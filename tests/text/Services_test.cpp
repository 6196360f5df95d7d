// The services form, on lines, on files, and beside the C library on the machine's own file.
#include <genreg/GenRegServices.h>
#include <netdb.h>

#include "SchemaFile.h"

namespace {

constexpr unsigned long NAME = SERVICES_MATCH_NAME;
constexpr unsigned long PORT = SERVICES_MATCH_PORT;
constexpr unsigned long PROTOCOL = SERVICES_MATCH_PROTOCOL;
constexpr unsigned long EVERYTHING = ~0UL;
constexpr const char* SYSTEM_FILE = "/etc/services";

unsigned int stored(unsigned int port) {
    return htons(static_cast<unsigned short>(port));
}

GenRegServicesRecord service(const char* name, unsigned int port, const char* protocol, const char* comment = nullptr) {
    GenRegServicesRecord record = {};
    record.flags = SERVICES_HAS_NAME | (comment != nullptr ? SERVICES_HAS_COMMENT : 0);
    record.name = const_cast<char*>(name);
    record.port = stored(port);
    record.protocol = const_cast<char*>(protocol);
    record.comment = const_cast<char*>(comment);
    return record;
}

std::string aliasesOf(char** aliases) {
    std::string all;
    for (; aliases != nullptr && *aliases != nullptr; ++aliases) {
        all += std::string(" ") + *aliases;
    }
    return all;
}

std::string describe(const GenRegServicesRecord& record) {
    return " " + std::to_string(record.flags) + " " + textOf(record.name) + " " + std::to_string(record.port) + "/" +
           textOf(record.protocol) + " #" + textOf(record.comment) + aliasesOf(record.aliases);
}

std::string parsed(const std::string& line) {
    return parsedLine<GenRegServices>(line, describe);
}

std::string formatted(const GenRegServicesRecord& record) {
    return formattedLine<GenRegServices>(record);
}

TEST(ServicesLine, IsTakenApart) {
    const std::string port = std::to_string(stored(50000));
    EXPECT_EQ(parsed("  rvn_main\t50000/tcp  one\ttwo # for\tall\x01\xe9\n"),
              "0 3 rvn_main " + port + "/tcp # for\tall.. one two");
    for (const std::string protocol : {"udp", "tcp", "ddp", "divert", "sctp"}) {
        EXPECT_EQ(parsed("rvn 50000/" + protocol + " one"), "0 2 rvn " + port + "/" + protocol + " #(null) one");
    }
    EXPECT_EQ(parsed("rvn 50000/dccp one # c"), "0 3 rvn " + port + "/dccp # c");
    EXPECT_EQ(parsed("rvn 50000/tcp/x one"), "0 2 rvn " + port + "/tcp/x #(null)");
    EXPECT_EQ(parsed("rvn 50000 one\n"), "0 2 rvn 0/(null) #(null)");
    EXPECT_EQ(parsed("rvn#c\n"), std::to_string(REG_SERVICE_WITHOUT_PORT) + " 3 rvn 0/(null) #c");
    EXPECT_EQ(parsed("\n"), "0 1 (null) 0/(null) #(null)");
    EXPECT_EQ(parsed(" \n"), "0 0 (null) 0/(null) #(null)");
    EXPECT_EQ(parsed(""), "0 0 (null) 0/(null) #(null)");
    EXPECT_EQ(parsed("#\n"), "0 1 (null) 0/(null) #");
}

TEST(ServicesLine, IsLaidOutByTheStoredPort) {
    const auto reformatted = [](const std::string& line) {
        GenRegServicesRecord record;
        EXPECT_EQ(GenRegServices::ParseLine(&record, line.c_str()), 0u);
        return formatted(record);
    };
    EXPECT_EQ(reformatted("rvn_main 50000/tcp one two # note\n"), "rvn_main\t50000/tcp\tone two\t\t#  note\n");
    EXPECT_EQ(reformatted("short 50000/udp longalias b #\n"), "short\t\t50000/udp\tlongalias b\t# \n");
    // Bytes swapped, 512 is stored as 2 and 80 as 20480.
    EXPECT_EQ(reformatted("short 512/tcp one\n"), "short\t\t512/tcp\t\tone\n");
    EXPECT_EQ(reformatted("short 512/tcp #c"), "short\t\t512/tcp\t\t\t\t# c\n");
    EXPECT_EQ(reformatted("short 80/tcp #c"), "short\t\t80/tcp\t\t\t# c\n");
    EXPECT_EQ(reformatted("#c\n"), "\t\t\t\t# c\n");
    EXPECT_EQ(formatted({}), "\n");
    EXPECT_EQ(formatted(service(nullptr, 0, nullptr)), "REG_FORMAT_NAME_MISSING");
    EXPECT_EQ(formatted(service("a", 0, nullptr)), "REG_FORMAT_PORT_MISSING");
    EXPECT_EQ(formatted(service("a", 1, nullptr)), "REG_FORMAT_PROTOCOL_MISSING");
}

TEST(ServicesLine, HasAtMost127Aliases) {
    const auto line = [](int aliases) {
        std::string text = "rvn 50000/tcp";
        for (int i = 1; i <= aliases; ++i) {
            text += " a" + std::to_string(i);
        }
        return text + "\n";
    };
    EXPECT_TRUE(parsed(line(127)).ends_with(" a126 a127"));
    EXPECT_EQ(parsed(line(128)), std::to_string(REG_BUFFER_TOO_SMALL) + " 0 (null) 0/(null) #(null)");
    std::vector<char*> aliases(128, const_cast<char*>("a"));
    aliases.push_back(nullptr);
    GenRegServicesRecord record = service("rvn", 1, "tcp");
    record.aliases = aliases.data();
    EXPECT_EQ(formatted(record), "REG_BUFFER_TOO_SMALL");
    record.aliases = aliases.data() + 1;
    EXPECT_EQ(formatted(record).size(), std::strlen("rvn\t\t1/tcp\t\t\n") + 127 + 126);
}

TEST(ServicesLine, EndsWithinItsBuffers) {
    const std::string head = "rvn 50000/tcp ";
    for (const std::size_t length : {2047UL, 2048UL, 5000UL}) {
        EXPECT_TRUE(parsed(head + std::string(length - head.size(), 'a'))
                        .ends_with(") " + std::string(2047 - head.size(), 'a')));
    }
    // A line of the file has 2,047 bytes at most, its newline included.
    const std::string tail = "\t50000/tcp\n";
    const std::string longest(2047 - tail.size(), 'n');
    EXPECT_EQ(formatted(service(longest.c_str(), 50000, "tcp")), longest + tail);
    EXPECT_EQ(formatted(service((longest + "n").c_str(), 50000, "tcp")), "REG_LINE_TOO_LONG");
    EXPECT_EQ(formatted(service(std::string(5000, 'n').c_str(), 50000, "tcp")), "REG_LINE_TOO_LONG");
}

TEST(ServicesRecord, IsMatchedByNamePortAndProtocolOnly) {
    const auto match = [](unsigned long mask, const char* a, const char* b) {
        GenRegServicesRecord first;
        GenRegServicesRecord second;
        (void)GenRegServices::ParseLine(&first, a);
        (void)GenRegServices::ParseLine(&second, b);
        return GenRegServices::MatchRecord(mask, &first, &second) == 1;
    };
    EXPECT_TRUE(match(EVERYTHING, "rvn 1/tcp one # c", "rvn 1/tcp two"));
    EXPECT_FALSE(match(NAME, "rvn 1/tcp", "RVN 1/tcp"));
    EXPECT_FALSE(match(PORT, "rvn 1/tcp", "rvn 2/tcp"));
    EXPECT_FALSE(match(PROTOCOL, "rvn 1/tcp", "rvn 1/udp"));
    EXPECT_TRUE(match(NAME, "rvn 1/tcp", "rvn 2/udp"));
    EXPECT_TRUE(match(0, "rvn 1/tcp", "other 2/udp"));
    EXPECT_FALSE(match(0, "rvn 1/tcp", "# c"));
    EXPECT_TRUE(match(EVERYTHING, "\n", "\n"));
    EXPECT_FALSE(match(0, "\n", "#\n"));
    EXPECT_FALSE(match(0, "#a", "#b"));
    EXPECT_TRUE(match(NAME, "# c\n", "\t# c\n"));
    EXPECT_FALSE(match(0, "\n", " \n"));
    EXPECT_FALSE(match(PROTOCOL, "rvn 1", "rvn 1"));  // both null
}

TEST(ServicesRecord, IsRefusedForWhatTheMaskMisses) {
    GenRegServicesRecord record = {};
    const auto refusal = [&](unsigned long mask) { return GenRegServices::ValidateRecord(mask, &record); };
    EXPECT_EQ(refusal(0), REG_EMPTY_RECORD);
    record.flags = SERVICES_HAS_COMMENT;
    EXPECT_EQ(refusal(0), 0u);
    EXPECT_EQ(refusal(EVERYTHING), REG_SERVICE_NAME_MISSING);
    EXPECT_EQ(refusal(PORT | PROTOCOL), REG_SERVICE_PORT_MISSING);
    EXPECT_EQ(refusal(PROTOCOL), REG_SERVICE_PROTOCOL_MISSING);
}

class ServicesFile : public SchemaFile {
protected:
    // Name, port and aliases, or nothing.
    static std::string libraryAnswer(const std::string& name, const std::string& protocol) {
        servent entry = {};
        servent* found = nullptr;
        char buffer[8192];
        (void)::getservbyname_r(name.c_str(), protocol.c_str(), &entry, buffer, sizeof buffer, &found);
        return found == nullptr ? "" : answer(found->s_name, found->s_port, found->s_aliases);
    }
    static std::string registryAnswer(const std::string& file, const std::string& name, const std::string& protocol) {
        unsigned int rc = 0;
        GenRegServices services(file.c_str(), &rc);
        GenRegServicesRecord key = service(name.c_str(), 0, protocol.c_str());
        GenRegServicesRecord found;
        rc = services.Get(NAME | PROTOCOL, &key, &found);
        return rc != 0 ? "" : answer(found.name, static_cast<int>(found.port), found.aliases);
    }

    // Holds every entry, as the C library enumerates them, against the C library's own look-up; how many there were.
    // That one also finds by alias: where a line before the entry has its name as an alias, it answers that line, which
    // is no answer to compare with.
    static std::size_t compareAll(const std::string& file) {
        struct Entry {
            std::string name, protocol;
        };
        std::vector<Entry> entries;
        ::setservent(1);
        while (const servent* entry = ::getservent()) {
            entries.push_back({entry->s_name, entry->s_proto});
        }
        ::endservent();
        std::size_t compared = 0;
        for (const Entry& entry : entries) {
            const std::string expected = libraryAnswer(entry.name, entry.protocol);
            if (expected.starts_with(entry.name + " ")) {
                ++compared;
                EXPECT_EQ(registryAnswer(file, entry.name, entry.protocol), expected) << entry.protocol;
            }
        }
        EXPECT_GE(compared, entries.size() * 9 / 10);
        return compared;
    }

private:
    static std::string answer(const char* name, int port, char** aliases) {
        return std::string(name) + " " + std::to_string(ntohs(static_cast<unsigned short>(port))) + aliasesOf(aliases);
    }
};

TEST_F(ServicesFile, EveryEntryOfTheMachineIsFoundAsTheCLibraryFindsIt) {
    if (compareAll(SYSTEM_FILE) == 0) {
        GTEST_SKIP() << SYSTEM_FILE << " has no entries";
    }
}

TEST_F(ServicesFile, EditsLeaveEveryOtherLineAsItWasAndTheCLibraryReadsThem) {
    const std::string before = Scratch::read(SYSTEM_FILE);
    const std::size_t ssh = before.find("\nssh\t") + 1;
    const std::size_t telnet = before.find("\ntelnet\t") + 1;
    if (ssh == 0 || telnet <= ssh) {
        GTEST_SKIP() << SYSTEM_FILE << " lacks the entries to edit";
    }
    content(before);
    unsigned int rc = 0;
    GenRegServices services(registry().c_str(), &rc);
    GenRegServicesRecord added = service("rvn_test", 61999, "tcp");
    char* aliases[] = {const_cast<char*>("rvn_one"), const_cast<char*>("rvn_two"), nullptr};
    added.aliases = aliases;
    EXPECT_EQ(services.Add(NAME | PROTOCOL, &added), 0u);
    EXPECT_EQ(services.Add(NAME | PROTOCOL, &added), REG_DUPLICATE);
    GenRegServicesRecord changed = service("ssh", 61998, "tcp");
    EXPECT_EQ(services.Change(NAME | PROTOCOL, &changed, &changed), 0u);
    EXPECT_EQ(services.Change(NAME | PROTOCOL, &changed, &changed), REG_UNCHANGED);
    GenRegServicesRecord deleted = service("telnet", 0, "tcp");
    EXPECT_EQ(services.Delete(NAME | PROTOCOL, &deleted), 0u);
    EXPECT_EQ(services.Delete(NAME | PROTOCOL, &deleted), REG_NOT_FOUND);
    const std::size_t afterSsh = before.find('\n', ssh) + 1;
    EXPECT_EQ(content(), before.substr(0, ssh) + "ssh\t\t61998/tcp\n" + before.substr(afterSsh, telnet - afterSsh) +
                             before.substr(before.find('\n', telnet) + 1) + "rvn_test\t61999/tcp\trvn_one rvn_two\n");

    // Where the edited file is the system's.
    constexpr int NO_ROOT = 77;
    std::filesystem::create_directories(path("root/etc"));
    std::filesystem::copy_file(registry(), path("root") + SYSTEM_FILE);
    write("root/etc/nsswitch.conf", "services: files\n");
    const int result = inChild([&] {
        if (::chroot(path("root").c_str()) != 0) {
            return NO_ROOT;
        }
        EXPECT_GT(compareAll(SYSTEM_FILE), 3u);
        EXPECT_EQ(libraryAnswer("ssh", "tcp"), "ssh 61998");
        EXPECT_EQ(libraryAnswer("telnet", "tcp"), "");
        EXPECT_EQ(libraryAnswer("rvn_test", "tcp"), "rvn_test 61999 rvn_one rvn_two");
        return HasFailure() ? 1 : 0;
    });
    if (result == NO_ROOT) {
        GTEST_SKIP() << "only root has a root directory of its own";
    }
    EXPECT_EQ(result, 0);
}

TEST_F(ServicesFile, AnUpdateThatWouldNotReadBackIsRefused) {
    const std::string before = "rvn\t\t1/tcp\n# c\n";
    content(before);
    unsigned int rc = 0;
    GenRegServices services(registry().c_str(), &rc);
    GenRegServicesRecord record = service("two words", 1, "tcp");
    EXPECT_EQ(services.Add(NAME, &record), REG_VERIFY_FAILED);
    record = service("other", 2, "tcp", "c\nplanted 3/tcp");
    EXPECT_EQ(services.Add(NAME, &record), REG_VERIFY_FAILED);
    record.name = const_cast<char*>("rvn");
    EXPECT_EQ(services.Change(NAME, &record, &record), REG_VERIFY_FAILED);
    record.flags = SERVICES_HAS_COMMENT;
    record.comment = const_cast<char*>("c");  // is written as " c", like the line that is there
    EXPECT_EQ(services.Add(0, &record), REG_VERIFY_FAILED);
    EXPECT_EQ(content(), before);
}

TEST_F(ServicesFile, TheFirstFieldJudgesALineAsParsingDoes) {
    using namespace std::string_literals;
    expectJudgedAsParsed<GenRegServices, GenRegServicesRecord>(
        {408,
         {"a",    "b",  "ab",     "a b",    " ",  "\t",      "\r",  "a\r1/tcp", "\"", "#",  "\n",        "\n", "\n",
          "\\\n", "\\", " 1/tcp", " 2/udp", "/x", "\n1/tcp", "# c", " c",       "/",  "\v", "\na 1/tcp", "\0"s},
         REG_FEATURE_LINE_CONTINUATION,
         [](Dice& dice) {
             constexpr const char* NAMES[] = {"a", "b", "ab", "", "a b", "\"a", "a\\", "\"", "c"};
             GenRegServicesRecord key = service(dice.oneOf(NAMES), 1, "tcp", " c");
             key.flags = dice.below(4);
             return key;
         },
         describe});
}

}  // namespace

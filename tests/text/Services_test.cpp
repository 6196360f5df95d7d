// The services form, on lines, on files, and beside the C library on the machine's own file.
#include <genreg/GenRegServices.h>
#include <netdb.h>
#include <sched.h>
#include <sys/mount.h>

#include <array>
#include <cstring>

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

GenRegServicesRecord service(const char* name, unsigned int port, const char* protocol) {
    GenRegServicesRecord record = {};
    record.flags = SERVICES_HAS_NAME;
    record.name = const_cast<char*>(name);
    record.port = stored(port);
    record.protocol = const_cast<char*>(protocol);
    return record;
}

std::vector<std::string> listOf(char** names) {
    std::vector<std::string> list;
    for (; names != nullptr && *names != nullptr; ++names) {
        list.emplace_back(*names);
    }
    return list;
}

std::string describe(const GenRegServicesRecord& record) {
    std::string text = " " + std::to_string(record.flags) + " " + textOf(record.name) + " " +
                       std::to_string(record.port) + "/" + textOf(record.protocol) + " #" + textOf(record.comment);
    for (const std::string& alias : listOf(record.aliases)) {
        text += " " + alias;
    }
    return text;
}

// The answer of ParseLine and the record, or of FormatLine and the line.
std::string parsed(const std::string& line) {
    GenRegServicesRecord record;
    std::memset(static_cast<void*>(&record), 'x', sizeof record);
    const unsigned int rc = GenRegServices::ParseLine(&record, line.c_str());
    return std::to_string(rc) + describe(record);
}

std::string formatted(GenRegServicesRecord record) {
    std::array<char, 2064> line;
    line.fill('~');
    const unsigned int rc = GenRegServices::FormatLine(&record, line.data());
    EXPECT_EQ(std::string(line.data() + 2048, 16), std::string(16, '~'));
    return rc == 0 ? line.data() : genregCodeName(rc);
}

std::string reformatted(const std::string& line) {
    GenRegServicesRecord record;
    EXPECT_EQ(GenRegServices::ParseLine(&record, line.c_str()), 0u);
    return formatted(record);
}

TEST(ServicesLine, IsTakenApart) {
    const std::string port = std::to_string(stored(50000));
    EXPECT_EQ(parsed("  rvn_main\t50000/tcp  one\ttwo # for\tall\x01\xe9\n"),
              "0 3 rvn_main " + port + "/tcp # for\tall.. one two");
    EXPECT_EQ(parsed("rvn 50000/dccp one # c"), "0 3 rvn " + port + "/dccp # c");
    EXPECT_EQ(parsed("rvn 50000/tcp/x one"), "0 2 rvn " + port + "/tcp/x #(null)");
    EXPECT_EQ(parsed("rvn 50000 one\n"), "0 2 rvn 0/(null) #(null)");
    EXPECT_EQ(parsed("rvn#c\n"), std::to_string(REG_SERVICE_WITHOUT_PORT) + " 3 rvn 0/(null) #c");
    EXPECT_EQ(parsed("\n"), "0 1 (null) 0/(null) #(null)");
    EXPECT_EQ(parsed(" \n"), "0 0 (null) 0/(null) #(null)");
    EXPECT_EQ(parsed(""), "0 0 (null) 0/(null) #(null)");
    EXPECT_EQ(parsed("#\n"), "0 1 (null) 0/(null) #");
    EXPECT_EQ(GenRegServices::ParseLine(nullptr, ""), REG_EMPTY_ARGUMENT);
}

TEST(ServicesLine, IsLaidOutByTheStoredPort) {
    EXPECT_EQ(reformatted("rvn_main 50000/tcp one two # note\n"), "rvn_main\t50000/tcp\tone two\t\t#  note\n");
    EXPECT_EQ(reformatted("short 50000/udp longalias b #\n"), "short\t\t50000/udp\tlongalias b\t# \n");
    // Bytes swapped, 512 is stored as 2 and 80 as 20480.
    EXPECT_EQ(reformatted("short 512/tcp one\n"), "short\t\t512/tcp\t\tone\n");
    EXPECT_EQ(reformatted("short 512/tcp #c"), "short\t\t512/tcp\t\t\t\t# c\n");
    EXPECT_EQ(reformatted("short 80/tcp #c"), "short\t\t80/tcp\t\t\t# c\n");
    EXPECT_EQ(reformatted("#c\n"), "\t\t\t\t# c\n");
    EXPECT_EQ(reformatted("\n"), "\t\t\t\t# \n");
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
    const std::string most = parsed(line(127));
    EXPECT_EQ(most.substr(0, 8), "0 2 rvn ");
    EXPECT_EQ(most.substr(most.size() - 10), " a126 a127");
    for (const int aliases : {128, 200}) {
        EXPECT_EQ(parsed(line(aliases)), std::to_string(REG_BUFFER_TOO_SMALL) + " 0 (null) 0/(null) #(null)");
    }
    std::vector<char*> aliases(128, const_cast<char*>("a"));
    aliases.push_back(nullptr);
    GenRegServicesRecord record = service("rvn", 1, "tcp");
    record.aliases = aliases.data();
    EXPECT_EQ(formatted(record), "REG_BUFFER_TOO_SMALL");
    record.aliases = aliases.data() + 1;
    EXPECT_EQ(formatted(record).size(), std::strlen("rvn\t\t1/tcp\t\t\n") + 127 + 126);
}

TEST(ServicesLine, EndsWithinItsBuffers) {
    for (const std::size_t length : {2047UL, 2048UL, 5000UL}) {
        GenRegServicesRecord record;
        const std::string head = "rvn 50000/tcp ";
        const std::string line = head + std::string(length - head.size(), 'a');
        ASSERT_EQ(GenRegServices::ParseLine(&record, line.c_str()), 0u);
        EXPECT_EQ(listOf(record.aliases), std::vector{std::string(2047 - head.size(), 'a')});
    }
    // A line of the file has 2,047 bytes at most, its newline included.
    const std::string tail = "\t50000/tcp\n";
    const std::string longest(2047 - tail.size(), 'n');
    EXPECT_EQ(formatted(service(longest.c_str(), 50000, "tcp")), longest + tail);
    EXPECT_EQ(formatted(service((longest + "n").c_str(), 50000, "tcp")), "REG_LINE_TOO_LONG");
    EXPECT_EQ(formatted(service(std::string(5000, 'n').c_str(), 50000, "tcp")), "REG_LINE_TOO_LONG");
}

TEST(ServicesLine, IsReadBackAsItWasWritten) {
    Dice dice(3202);
    const std::string letters = "abcXYZ019-_+.:\"\\\xe9";
    for (int round = 0; round < 3000; ++round) {
        const std::string name = dice.word(letters, 1, 12);
        const std::string comment = dice.word("abc :/#\"\t", 0, 20);
        const char* const protocols[] = {"udp", "tcp", "ddp", "divert", "sctp"};
        GenRegServicesRecord record =
            service(name.c_str(), static_cast<unsigned int>(1 + dice.below(65535)), dice.oneOf(protocols));
        std::vector<std::string> names(dice.below(5));
        std::vector<char*> aliases;
        for (std::string& alias : names) {
            alias = dice.word(letters, 1, 12);
            aliases.push_back(alias.data());
        }
        aliases.push_back(nullptr);
        record.aliases = dice.below(9) == 0 ? nullptr : aliases.data();
        if (dice.below(2) == 0) {
            record.flags |= SERVICES_HAS_COMMENT;
            record.comment = const_cast<char*>(comment.c_str());
        }
        const std::string line = formatted(record);
        std::string expected = "0" + describe(record);
        if (record.comment != nullptr) {
            expected.insert(expected.find(" #") + 2, " ");  // reading keeps the blank that writing puts first
        }
        ASSERT_EQ(parsed(line), expected) << line;
    }
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
    EXPECT_EQ(GenRegServices::ValidateRecord(0, nullptr), REG_EMPTY_ARGUMENT);
    EXPECT_EQ(refusal(0), REG_EMPTY_RECORD);
    record.flags = SERVICES_HAS_COMMENT;
    EXPECT_EQ(refusal(0), 0u);
    EXPECT_EQ(refusal(EVERYTHING), REG_SERVICE_NAME_MISSING);
    EXPECT_EQ(refusal(PORT | PROTOCOL), REG_SERVICE_PORT_MISSING);
    EXPECT_EQ(refusal(PROTOCOL), REG_SERVICE_PROTOCOL_MISSING);
    record = service("a", 1, "tcp");
    EXPECT_EQ(refusal(EVERYTHING), 0u);
}

TEST(ServicesRecord, IsPrintedWithItsStoredPort) {
    GenRegServicesRecord record = service("rvn", 50000, nullptr);
    testing::internal::CaptureStdout();
    EXPECT_EQ(GenRegServices::PrintRecord(&record), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "   name     = |rvn|\n   port     = " + std::to_string(stored(50000)) +
                  "\n   protocol = NULL\n   comment  = NULL\n");
    unsigned long size = 0;
    EXPECT_EQ(GenRegServices::GetMaxRecordSize(&size), 0u);
    EXPECT_EQ(size, sizeof record);
}

class ServicesFile : public SchemaFile {
protected:
    // What the C library answers: port and aliases, or nothing.
    static std::string libraryAnswer(const std::string& name, const std::string& protocol) {
        servent entry = {};
        servent* found = nullptr;
        char buffer[8192];
        (void)::getservbyname_r(name.c_str(), protocol.c_str(), &entry, buffer, sizeof buffer, &found);
        return found == nullptr ? "" : answer(found->s_name, found->s_port, found->s_aliases);
    }

    static std::string answer(const char* name, int port, char** aliases) {
        std::string text = std::string(name) + " " + std::to_string(ntohs(static_cast<unsigned short>(port)));
        for (const std::string& alias : listOf(aliases)) {
            text += " " + alias;
        }
        return text;
    }

    static std::string registryAnswer(const std::string& file, const std::string& name, const std::string& protocol) {
        unsigned int rc = 0;
        GenRegServices services(file.c_str(), &rc);
        GenRegServicesRecord key = service(name.c_str(), 0, protocol.c_str());
        GenRegServicesRecord found;
        rc = services.Get(NAME | PROTOCOL, &key, &found);
        return rc != 0 ? "" : answer(found.name, static_cast<int>(found.port), found.aliases);
    }

    struct Entry {
        std::string name;
        std::string protocol;
    };
    // Every entry of the machine's file, as the C library enumerates them.
    static std::vector<Entry> systemEntries() {
        std::vector<Entry> entries;
        ::setservent(1);
        while (const servent* entry = ::getservent()) {
            entries.push_back({entry->s_name, entry->s_proto});
        }
        ::endservent();
        return entries;
    }

    // How many entries get different answers. The C library also finds by alias: where a line before the entry has its
    // name as an alias, it answers that line, which is no answer to compare with.
    static int disagreements(const std::string& file, std::size_t* compared) {
        int different = 0;
        *compared = 0;
        for (const Entry& entry : systemEntries()) {
            const std::string expected = libraryAnswer(entry.name, entry.protocol);
            if (expected.substr(0, expected.find(' ')) != entry.name) {
                continue;
            }
            ++*compared;
            const std::string got = registryAnswer(file, entry.name, entry.protocol);
            if (got != expected) {
                ++different;
                ADD_FAILURE() << entry.name << "/" << entry.protocol << ": " << got << " instead of " << expected;
            }
        }
        return different;
    }

    // Adds, changes and deletes an entry of the copy of the machine's file.
    void edit() const {
        unsigned int rc = 0;
        GenRegServices services(registry().c_str(), &rc);
        ASSERT_EQ(rc, 0u);
        GenRegServicesRecord added = service("rvn_test", 61999, "tcp");
        char* aliases[] = {const_cast<char*>("rvn_one"), const_cast<char*>("rvn_two"), nullptr};
        added.aliases = aliases;
        ASSERT_EQ(services.Add(NAME | PROTOCOL, &added), 0u);
        EXPECT_EQ(services.Add(NAME | PROTOCOL, &added), REG_DUPLICATE);
        GenRegServicesRecord changed = service("ssh", 61998, "tcp");
        ASSERT_EQ(services.Change(NAME | PROTOCOL, &changed, &changed), 0u);
        EXPECT_EQ(services.Change(NAME | PROTOCOL, &changed, &changed), REG_UNCHANGED);
        GenRegServicesRecord deleted = service("telnet", 0, "tcp");
        ASSERT_EQ(services.Delete(NAME | PROTOCOL, &deleted), 0u);
        EXPECT_EQ(services.Delete(NAME | PROTOCOL, &deleted), REG_NOT_FOUND);
    }
};

TEST_F(ServicesFile, EveryEntryOfTheMachineIsFoundAsTheCLibraryFindsIt) {
    if (systemEntries().empty()) {
        GTEST_SKIP() << SYSTEM_FILE << " has no entries";
    }
    std::size_t compared = 0;
    EXPECT_EQ(disagreements(SYSTEM_FILE, &compared), 0);
    EXPECT_GT(compared, systemEntries().size() * 9 / 10);
}

TEST_F(ServicesFile, EditsLeaveEveryOtherLineAsItWas) {
    const std::string before = Scratch::read(SYSTEM_FILE);
    const std::size_t ssh = before.find("\nssh\t") + 1;
    const std::size_t telnet = before.find("\ntelnet\t") + 1;
    if (ssh == 0 || telnet <= ssh) {
        GTEST_SKIP() << SYSTEM_FILE << " lacks the entries to edit";
    }
    write(before);
    ASSERT_NO_FATAL_FAILURE(edit());
    const std::size_t afterSsh = before.find('\n', ssh) + 1;
    EXPECT_EQ(read(), before.substr(0, ssh) + "ssh\t\t61998/tcp\n" + before.substr(afterSsh, telnet - afterSsh) +
                          before.substr(before.find('\n', telnet) + 1) + "rvn_test\t61999/tcp\trvn_one rvn_two\n");
}

TEST_F(ServicesFile, TheCLibraryReadsAnEditedFileAlike) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root binds a file over " << SYSTEM_FILE;
    }
    write(Scratch::read(SYSTEM_FILE));
    ASSERT_NO_FATAL_FAILURE(edit());
    constexpr int NO_NAMESPACE = 77;
    const int result = inChild([&] {
        if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount(registry().c_str(), SYSTEM_FILE, nullptr, MS_BIND, nullptr) != 0) {
            return NO_NAMESPACE;
        }
        std::size_t compared = 0;
        if (disagreements(registry(), &compared) != 0 || compared < 3) {
            return 1;
        }
        if (libraryAnswer("ssh", "tcp") != "ssh 61998" || !libraryAnswer("telnet", "tcp").empty()) {
            return 2;
        }
        return libraryAnswer("rvn_test", "tcp") == "rvn_test 61999 rvn_one rvn_two" ? 0 : 3;
    });
    if (result == NO_NAMESPACE) {
        GTEST_SKIP() << "no private mount namespace here";
    }
    EXPECT_EQ(result, 0);
}

TEST_F(ServicesFile, LinesThatAreRefusedOrTooLongAreCarriedAlong) {
    std::string crowded = "crowd 7/tcp";
    for (int i = 0; i < 128; ++i) {
        crowded += " a";
    }
    const std::string first = crowded + " # \xff\nalone\n";
    const std::string last = "long 9/tcp " + std::string(5000, 'x') + "\n";
    write(first + "rvn 1/tcp\n" + last);
    EXPECT_EQ(registryAnswer(registry(), "crowd", "tcp"), "");
    unsigned int rc = 0;
    GenRegServices services(registry().c_str(), &rc);
    GenRegServicesRecord crowd = service("crowd", 1, "tcp");
    GenRegServicesRecord rvn = service("rvn", 2, "tcp");
    EXPECT_EQ(services.Delete(NAME, &crowd), REG_NOT_FOUND);
    EXPECT_EQ(services.Change(NAME, &rvn, &rvn), 0u);
    EXPECT_EQ(read(), first + "rvn\t\t2/tcp\n" + last);
    EXPECT_EQ(services.Delete(NAME, &rvn), 0u);
    EXPECT_EQ(read(), first + last);
}

TEST_F(ServicesFile, AnUpdateThatWouldNotReadBackIsRefused) {
    const std::string before = "rvn\t\t1/tcp\n# c\n";
    write(before);
    unsigned int rc = 0;
    GenRegServices services(registry().c_str(), &rc);
    GenRegServicesRecord record = service("two words", 1, "tcp");
    EXPECT_EQ(services.Add(NAME, &record), REG_VERIFY_FAILED);
    record = service("other", 2, "tcp");
    record.flags |= SERVICES_HAS_COMMENT;
    record.comment = const_cast<char*>("c\nplanted 3/tcp");
    EXPECT_EQ(services.Add(NAME, &record), REG_VERIFY_FAILED);
    record.name = const_cast<char*>("rvn");
    EXPECT_EQ(services.Change(NAME, &record, &record), REG_VERIFY_FAILED);
    record.flags = SERVICES_HAS_COMMENT;
    record.comment = const_cast<char*>("c");  // is written as " c", like the line that is there
    EXPECT_EQ(services.Add(0, &record), REG_VERIFY_FAILED);
    EXPECT_EQ(read(), before);
}

TEST_F(ServicesFile, TheFirstFieldJudgesALineAsParsingDoes) {
    Dice dice(408);
    using namespace std::string_literals;
    const std::vector<std::string> pieces = {
        "a",    "b",  "ab",     "a b",    " ",  "\t",      "\r",  "a\r1/tcp", "\"", "#",  "\n",        "\n", "\n",
        "\\\n", "\\", " 1/tcp", " 2/udp", "/x", "\n1/tcp", "# c", " c",       "/",  "\v", "\na 1/tcp", "\0"s};
    const std::vector<std::string> keys = {"a", "b", "ab", "", "a b", "\"a", "a\\", "\"", "c"};
    const std::vector<std::string> tails = {"", "", "a", "a\\\n"};  // the last is continued by nothing
    int found = 0;
    for (int round = 0; round < 4000; ++round) {
        const std::string text = dice.join(pieces, 14) + dice.oneOf(tails);
        const std::string name = dice.oneOf(keys);
        GenRegServicesRecord key = service(name.c_str(), 1, "tcp");
        key.flags = dice.below(4);
        key.comment = const_cast<char*>(" c");
        const unsigned long mask = dice.below(8);
        const unsigned long feature = dice.below(2) * REG_FEATURE_LINE_CONTINUATION;
        const bool deletes = round % 20 == 0;
        write(text);
        const std::string fast = answersOf<GenRegServices>(false, registry(), feature, mask, key, deletes, describe);
        const std::string left = read();
        write(text);
        ASSERT_EQ(fast, answersOf<GenRegServices>(true, registry(), feature, mask, key, deletes, describe)) << text;
        ASSERT_EQ(left, read()) << text;
        found += fast[0] == '0' ? 1 : 0;
    }
    EXPECT_GT(found, 100);
}

TEST(ServicesObject, KnowsItsFileOrSaysWhyNot) {
    unsigned int rc = 0;
    GenRegServices services("dir/services", &rc);
    EXPECT_EQ(rc, 0u);
    char lock[64];
    EXPECT_EQ(services.getRegistryLockPath(lock, sizeof lock), 0u);
    EXPECT_STREQ(lock, "dir/.services.lock");
    EXPECT_TRUE(services.isFeatureSet(REG_FEATURE_DEFERRED_COMMIT));
    EXPECT_FALSE(services.isFeatureSet(REG_FEATURE_ALLOW_DUPLICATES | REG_FEATURE_LINE_CONTINUATION));
    GenRegServices none("", &rc);
    EXPECT_EQ(rc, REG_EMPTY_ARGUMENT);
    GenRegServices tooLong(std::string(1018, 'p').c_str(), &rc);
    EXPECT_EQ(rc, REG_PATH_TOO_LONG);
    EXPECT_EQ(tooLong.CheckFuncPtrs(), REG_NO_VALIDATE_RECORD);
}

}  // namespace

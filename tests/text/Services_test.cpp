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

std::string formatted(const GenRegServicesRecord& record) {
    return formattedLine<GenRegServices>(record);
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
    EXPECT_EQ(reformatted("short 0080/tcp #c"), "short\t\t80/tcp\t\t\t# c\n");  // zeros make no octal number
    EXPECT_EQ(reformatted("#c\n"), "\t\t\t\t# c\n");
    EXPECT_EQ(formatted({}), "\n");
    EXPECT_EQ(formatted(service(nullptr, 0, nullptr)), "REG_FORMAT_NAME_MISSING");
    EXPECT_EQ(formatted(service("a", 0, nullptr)), "REG_FORMAT_PORT_MISSING");
    EXPECT_EQ(formatted(service("a", 1, nullptr)), "REG_FORMAT_PROTOCOL_MISSING");
}

TEST(ServicesLine, HasAtMost127Aliases) {
    std::string line = "rvn 50000/tcp";
    for (int i = 1; i <= 128; ++i) {
        line += " a";
    }
    GenRegServicesRecord record;
    EXPECT_EQ(GenRegServices::ParseLine(&record, line.c_str()), REG_BUFFER_TOO_SMALL);
    record = service("rvn", 1, "tcp");
    std::vector<char*> aliases(128, const_cast<char*>("a"));
    aliases.push_back(nullptr);
    record.aliases = aliases.data();
    EXPECT_EQ(formatted(record), "REG_BUFFER_TOO_SMALL");
    record.aliases = aliases.data() + 1;
    EXPECT_EQ(formatted(record).size(), std::strlen("rvn\t\t1/tcp\t\t\n") + 127 + 126);
}

// A line of the file has 2,047 bytes at most, its newline included.
TEST(ServicesLine, EndsWithinItsBuffer) {
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
        const servent* const found = this_system::serviceNamed(name.c_str(), protocol.c_str());
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

TEST_F(ServicesFile, EditsLeaveEveryOtherLineAsItWasAndTheCLibraryReadsThem) {
    const std::string before = Scratch::read(SYSTEM_FILE);
    const std::size_t ssh = before.find("\nssh\t") + 1;
    const std::size_t telnet = before.find("\ntelnet\t") + 1;
    if (ssh == 0 || telnet <= ssh) {
        GTEST_SKIP() << SYSTEM_FILE << " lacks the entries to edit";
    }
    EXPECT_GT(compareAll(SYSTEM_FILE), 0u);
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
    content("rvn\t\t1/tcp\n");
    unsigned int rc = 0;
    GenRegServices services(registry().c_str(), &rc);
    GenRegServicesRecord record = service("two words", 1, "tcp");
    EXPECT_EQ(services.Add(NAME, &record), REG_VERIFY_FAILED);
    EXPECT_EQ(content(), "rvn\t\t1/tcp\n");
}

}  // namespace

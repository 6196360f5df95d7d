// Gives a service the next free port, under both protocols or none: ./services FILE NAME
#include <genreg/genreg.h>

#include <cstdio>
#include <cstring>
#include <set>
#include <string>

namespace {

constexpr unsigned int FIRST = 50000;
constexpr unsigned long BY_NAME = SERVICES_MATCH_NAME | SERVICES_MATCH_PROTOCOL;

// A record has its port in network byte order; there and back is the same.
unsigned int swapped(unsigned int port) {
    const unsigned char bytes[] = {static_cast<unsigned char>(port >> 8U), static_cast<unsigned char>(port)};
    unsigned short number = 0;
    std::memcpy(&number, bytes, sizeof number);
    return number;
}

template <class Use>
unsigned int each(GenRegServices& services, Use use) {
    unsigned int code = services.OpenScan();
    GenRegServicesRecord entry;
    while (code == 0 && (code = services.GetNext(0, nullptr, &entry)) == 0) {
        if ((entry.flags & SERVICES_HAS_NAME) != 0) {
            use(entry);
        }
    }
    const unsigned int closed = services.CloseScan();
    return code != REG_NO_MORE_RECORDS ? code : closed;
}

// Nobody else changes the file while the batch is open, so what is listed is what the batch began with.
unsigned int addBoth(GenRegServices& services, std::string name) {
    char tcp[] = "tcp";
    char udp[] = "udp";
    char comment[] = "by an example";
    GenRegServicesRecord entry = {};
    entry.flags = SERVICES_HAS_NAME | SERVICES_HAS_COMMENT;
    entry.name = name.data();
    entry.protocol = tcp;
    entry.comment = comment;
    GenRegServicesRecord found;
    unsigned int code = services.Get(BY_NAME, &entry, &found);
    if (code != REG_NOT_FOUND && code != REG_OPEN_FAILED) {  // the latter: the file is not there yet
        return code;
    }
    std::set<unsigned int> taken;
    (void)each(services, [&](const GenRegServicesRecord& other) { taken.insert(swapped(other.port)); });
    unsigned int port = FIRST;
    while (taken.count(port) != 0) {
        ++port;
    }
    entry.port = swapped(port);
    code = services.Add(BY_NAME, &entry);
    entry.protocol = udp;
    return code == 0 ? services.Add(BY_NAME, &entry) : code;
}

}  // namespace

int main(int count, char** words) {
    if (count != 3) {
        return 2;
    }
    unsigned int code = 0;
    GenRegServices services(words[1], &code);
    code = code == 0 ? services.KeepLines(true) : code;
    code = code == 0 ? services.BeginBatch() : code;
    if (code == 0) {
        code = addBoth(services, words[2]);
        code = code == 0 ? services.CommitBatch() : ((void)services.AbandonBatch(), code);
    }
    if (code == 0 || code == REG_UNCHANGED) {
        code = each(services, [](const GenRegServicesRecord& entry) {
            std::printf("%s %u/%s", entry.name, swapped(entry.port), entry.protocol);
            for (char** alias = entry.aliases; alias != nullptr && *alias != nullptr; ++alias) {
                std::printf(" %s", *alias);
            }
            std::putchar('\n');
        });
    }
    if (code != 0) {
        std::fprintf(stderr, "%s: %s\n", words[1], genregCodeText(code));
    }
    return code == 0 ? 0 : 1;
}

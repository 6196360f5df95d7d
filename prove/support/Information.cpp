// The information functions over the global registry, behind the face of the schemas: a row is an instance or an
// installed copy that has every field.
#include <genreg/GlobalRegRecord.h>
#include <genreg/InstanceInfo.h>
#include <genreg/ServiceInfo.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "SchemaFace.h"

namespace prove {
namespace {

constexpr unsigned long VERSION = 0x0009000700000002UL;
constexpr char SERVICE[] = "copies";
constexpr char WORD[] = "word";
constexpr char FLAG = 'y';
constexpr int NUMBER = 11;

template <std::size_t N>
void put(char (&member)[N], const std::string& text) {
    (void)text.copy(member, N - 1);
}

struct Instances {
    using Info = OSSInstanceInfo_t;

    static Info info(const Row& row) {
        Info info = {};
        info.flags = INSTANCE_INFO_START_AT_BOOT | INSTANCE_INFO_MAINTENANCE;
        info.versionCode = VERSION;
        put(info.instanceName, row.name);
        put(info.service, SERVICE);
        put(info.instancePath, std::to_string(row.value));
        put(info.usage, WORD);
        put(info.extraPath, WORD);
        put(info.extraName, WORD);
        put(info.comment, WORD);
        return info;
    }
    static Row row(const Info& info) { return {info.instanceName, std::atoi(info.instancePath)}; }

    static unsigned int set(Info* info) { return ossSetInstanceInfo(info); }
    static unsigned int get(char* name, Info* info) {
        char service[] = "copies";
        return ossGetInstanceInfo(service, VERSION, name, info);
    }
    static unsigned int remove(char* name) {
        char service[] = "copies";
        return ossRemoveInstanceInfo(service, VERSION, name);
    }
    static unsigned int openList(void** handle) { return ossOpenInstanceList(SERVICE, handle, false); }
    static unsigned int next(void* handle, Info* info) { return ossGetNextInstance(handle, info); }
    static unsigned int closeList(void* handle) { return ossCloseInstanceList(handle); }
};

struct Services {
    using Info = OSSServiceInfo_t;

    static Info info(const Row& row) {
        Info info = {};
        info.versionCode = VERSION;
        put(info.service, row.name);
        put(info.servicePath, WORD);
        put(info.serviceAltPath, WORD);
        put(info.serviceText, WORD);
        info.fixpackNumber = row.value;
        info.serviceNumber1 = NUMBER;
        info.serviceFlag = FLAG;
        info.serviceNumber2 = NUMBER;
        info.serviceNumber3 = NUMBER;
        return info;
    }
    static Row row(const Info& info) { return {info.service, info.fixpackNumber}; }

    static unsigned int set(Info* info) { return ossSetServiceInfo(info); }
    static unsigned int get(char* name, Info* info) { return ossGetServiceInfo(name, VERSION, nullptr, info); }
    static unsigned int remove(char* name) { return ossRemoveServiceInfo(name, VERSION); }
    static unsigned int openList(void** handle) { return ossOpenServiceList(handle); }
    static unsigned int next(void* handle, Info* info) { return ossGetNextService(handle, info); }
    static unsigned int closeList(void* handle) { return ossCloseServiceList(handle); }
};

// Which file it is about stands in the environment, so one such object is in use at a time.
template <typename Functions>
class Information final : public Registry {
public:
    explicit Information(const std::string& path) { (void)::setenv("RVN_GLOBAL_REG_PATHNAME", path.c_str(), 1); }

    unsigned int add(const Row& row) override { return change(row); }
    unsigned int change(const Row& row) override {
        typename Functions::Info info = Functions::info(row);
        return Functions::set(&info);
    }
    unsigned int remove(const std::string& name) override {
        char key[64] = {};
        put(key, name);
        return Functions::remove(key);
    }
    unsigned int read(Rows* rows) override {
        rows->clear();
        return list([rows](const auto& info) { rows->push_back(Functions::row(info)); });
    }
    unsigned int look(const std::string& name, Row* found, long* count) override {
        char key[64] = {};
        put(key, name);
        typename Functions::Info info = {};
        if (const unsigned int rc = Functions::get(key, &info)) {
            return rc;
        }
        *found = Functions::row(info);
        *count = 0;
        return list([count](const auto&) { ++*count; });
    }
    unsigned int unlock() override { return 0; }  // each call has an object of its own, which is gone

private:
    // Visits what the list tells of.
    template <typename Visit>
    unsigned int list(Visit visit) {
        void* list = nullptr;
        if (const unsigned int rc = Functions::openList(&list)) {
            return rc;
        }
        typename Functions::Info info = {};
        unsigned int rc = 0;
        while ((rc = Functions::next(list, &info)) == 0) {
            visit(info);
        }
        const unsigned int closed = Functions::closeList(list);
        return rc == REG_NO_MORE_RECORDS ? closed : rc;
    }
};

template <typename Functions>
std::unique_ptr<Registry> openInformation(const std::string& path, unsigned long /*features*/) {
    return std::make_unique<Information<Functions>>(path);
}

// --- the bytes, laid out apart from the library ----------------------------------------------------------------------

std::string little(std::uint64_t number, std::size_t size) {
    std::string bytes;
    for (std::size_t i = 0; i < size; ++i) {
        bytes += static_cast<char>(number >> (8 * i));
    }
    return bytes;
}

std::string text(const std::string& value) {
    return value + '\0';
}

std::string number(int value) {
    return little(static_cast<std::uint32_t>(value), 4);
}

// A frame with an image of these items, which are all the fields of the type.
std::string frame(unsigned int type, const std::vector<std::string>& items) {
    std::string image = little(type, 4) + little((1UL << items.size()) - 1, 8) + little(0, 8);
    for (const std::string& item : items) {
        image += little(item.size(), 2) + item;
    }
    image += little(0, 4);
    return little(image.size(), 4) + image;
}

std::string instanceBytes(const Rows& rows) {
    std::string bytes;
    for (const Row& row : rows) {
        bytes += frame(GLOBALREG_INSTANCE,
                       {text(SERVICE), little(VERSION, 8), text(row.name), text(std::to_string(row.value)), text(WORD),
                        number(1), number(1), text(WORD), text(WORD), text(WORD)});
    }
    return bytes;
}

std::string serviceBytes(const Rows& rows) {
    std::string bytes;
    for (const Row& row : rows) {
        bytes += frame(GLOBALREG_SERVICE,
                       {text(row.name), little(VERSION, 8), text(WORD), text(WORD), text(WORD), number(row.value),
                        number(NUMBER), std::string(1, FLAG), number(NUMBER), number(NUMBER)});
    }
    return bytes;
}

}  // namespace

const Schema INSTANCE_SCHEMA = {"instance", true, false, openInformation<Instances>, instanceBytes};
const Schema SERVICE_SCHEMA = {"service", true, false, openInformation<Services>, serviceBytes};

}  // namespace prove

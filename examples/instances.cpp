// Records an installed copy and an instance of it in the global registry, lists the instances, and takes both out
// again. Try it on a registry of your own: RVN_GLOBAL_REG_PATHNAME=/tmp/global.reg ./instances
#include <genreg/genreg.h>

#include <cstdio>

namespace {

bool succeeded(const char* what, unsigned int code) {
    if (code == 0 || code == REG_UNCHANGED) {
        return true;
    }
    GenRegCause cause;
    genregLastCause(&cause);
    std::fprintf(stderr, "%s: %s (%s)\n", what, genregCodeText(code), genregCodeText(cause.code));
    return false;
}

template <unsigned long Size>
void set(char (&member)[Size], const char* text) {
    (void)std::snprintf(member, Size, "%s", text);
}

}  // namespace

int main() {
    char service[] = "RVN";
    char name[] = "inst1";
    unsigned long version = 0;
    if (!succeeded("version", ossVersionStringToCode("9.7.0.2", &version))) {
        return 1;
    }

    OSSServiceInfo_t copy = {};
    copy.versionCode = version;
    set(copy.service, service);
    set(copy.servicePath, "/opt/rvn/V9.7");
    copy.fixpackNumber = 2;
    if (!succeeded("service", ossSetServiceInfo(&copy))) {
        return 1;
    }

    OSSInstanceInfo_t instance = {};
    instance.flags = INSTANCE_INFO_START_AT_BOOT;
    instance.versionCode = version;
    set(instance.service, service);
    set(instance.instanceName, name);
    set(instance.instancePath, "/home/inst1/rvnhome");
    if (!succeeded("instance", ossSetInstanceInfo(&instance))) {
        return 1;
    }

    void* list = nullptr;
    if (!succeeded("list", ossOpenInstanceList(service, &list))) {
        return 1;
    }
    OSSInstanceInfo_t next = {};  // flags are only ever set, so they are cleared before each call
    while (ossGetNextInstance(list, &next) == 0) {
        char text[24];
        (void)ossVersionCodeToString(next.versionCode, text, sizeof text);
        std::printf("%s of %s %s at %s%s\n", next.instanceName, next.service, text, next.instancePath,
                    (next.flags & INSTANCE_INFO_START_AT_BOOT) != 0 ? ", started at boot" : "");
        next = {};
    }
    const bool good = succeeded("close", ossCloseInstanceList(list)) &&
                      succeeded("remove", ossRemoveInstanceInfo(service, version, name)) &&
                      succeeded("remove", ossRemoveServiceInfo(service, version));
    return good ? 0 : 1;
}

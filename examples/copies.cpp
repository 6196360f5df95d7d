// Records an installed copy with its instances at once, lists them, and takes them out again. Try it on a registry of
// your own: RVN_GLOBAL_REG_PATHNAME=/tmp/global.reg ./copies
#include <genreg/genreg.h>

#include <cstdio>

namespace {

constexpr char VERSION[] = "9.7.0.2";
constexpr unsigned long SERVICE_KEY = SERVICE_SERVICE | SERVICE_VERSION_CODE;
constexpr unsigned long INSTANCE_KEY = INSTANCE_SERVICE | INSTANCE_VERSION_CODE | INSTANCE_NAME;

template <unsigned long Size>
void set(char (&member)[Size], const char* text) {
    (void)std::snprintf(member, Size, "%s", text);
}

GlobalRegRecord copy(unsigned long version) {
    GlobalRegRecord record = {};
    record.recordType = GLOBALREG_SERVICE;
    record.fieldMask = SERVICE_KEY | SERVICE_PATH | SERVICE_FIXPACK_NUMBER;
    set(record.body.service.service, "RVN");
    record.body.service.versionCode = version;
    set(record.body.service.servicePath, "/opt/rvn/V9.7");
    record.body.service.fixpackNumber = 2;
    return record;
}

GlobalRegRecord instance(unsigned long version, int number) {
    GlobalRegRecord record = {};
    record.recordType = GLOBALREG_INSTANCE;
    record.fieldMask = INSTANCE_KEY | INSTANCE_PATH | INSTANCE_START_AT_BOOT;
    GlobalRegInstance& body = record.body.instance;
    set(body.service, "RVN");
    body.versionCode = version;
    (void)std::snprintf(body.instanceName, sizeof body.instanceName, "inst%d", number);
    (void)std::snprintf(body.instancePath, sizeof body.instancePath, "/home/inst%d/rvnhome", number);
    body.startAtBoot = number == 1 ? 1 : 0;
    return record;
}

// One lock, one commit, one signal to the monitor; where one of the operations fails, none is made.
template <class Operations>
unsigned int atOnce(GlobalReg& registry, Operations operations) {
    unsigned int code = registry.BeginBatch();
    if (code == 0) {
        code = operations();
        code = code == 0 ? registry.CommitBatch() : ((void)registry.AbandonBatch(), code);
    }
    return code;
}

unsigned int list(GlobalReg& registry, bool told, int* records) {
    unsigned int code = registry.OpenScan();
    GlobalRegRecord each;
    for (*records = 0; code == 0 && (code = registry.GetNext(0, nullptr, &each)) == 0; ++*records) {
        if (told && each.recordType == GLOBALREG_INSTANCE) {
            const GlobalRegInstance& body = each.body.instance;
            char version[24];
            (void)ossVersionCodeToString(body.versionCode, version, sizeof version);
            std::printf("%s of %s %s at %s%s\n", body.instanceName, body.service, version, body.instancePath,
                        body.startAtBoot != 0 ? ", started at boot" : "");
        }
    }
    const unsigned int closed = registry.CloseScan();
    return code != REG_NO_MORE_RECORDS ? code : closed;
}

}  // namespace

int main() {
    unsigned long version = 0;
    unsigned int code = ossVersionStringToCode(VERSION, &version);
    GlobalReg registry;
    GlobalRegRecord service = copy(version);
    GlobalRegRecord instances[] = {instance(version, 1), instance(version, 2)};
    int records = 0;
    code = code != 0 ? code : atOnce(registry, [&] {
        unsigned int rc = registry.Add(SERVICE_KEY, &service);
        for (GlobalRegRecord& each : instances) {
            rc = rc == 0 ? registry.Add(INSTANCE_KEY, &each) : rc;
        }
        return rc;
    });
    code = code == 0 ? list(registry, true, &records) : code;
    code = code != 0 ? code : atOnce(registry, [&] {
        unsigned int rc = 0;
        for (GlobalRegRecord& each : instances) {
            rc = rc == 0 ? registry.Delete(INSTANCE_KEY, &each) : rc;
        }
        return rc == 0 ? registry.Delete(SERVICE_KEY, &service) : rc;
    });
    code = code == 0 ? list(registry, false, &records) : code;
    if (code != 0) {
        GenRegCause cause;
        genregLastCause(&cause);
        std::fprintf(stderr, "%s (%s)\n", genregCodeText(code), genregCodeText(cause.code));
        return 1;
    }
    std::printf("%d records are left\n", records);
    return 0;
}

// What the global registry refuses: the information functions, its own calls of the system, and its change log.
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "prove/refusals/Refusals.h"
#include "prove/support/Place.h"

namespace prove {
namespace {

constexpr char LOG[] = "/tmp/globalreg.debug";

// From here on this process has a /tmp of its own, empty.
bool enterOwnWorld() {
    return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("none", "/tmp", "tmpfs", 0, nullptr) == 0;
}

bool grantsOwnWorld() {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(enterOwnWorld() ? 0 : 1);
    }
    int status = 1;
    return child != -1 && ::waitpid(child, &status, 0) == child && status == 0;
}

unsigned int addService(unsigned long version) {
    OSSServiceInfo_t info = {};
    info.versionCode = version;
    std::memcpy(info.service, "RVN", sizeof "RVN");
    return ossSetServiceInfo(&info);
}

}  // namespace

void Refusals::information() {
    constexpr unsigned long VERSION = 1;
    char none[] = "";
    char service[] = "copies";
    OSSServiceInfo_t serviceInfo = {};
    OSSInstanceInfo_t instanceInfo = {};
    void* list = nullptr;
    expect({"ossSetServiceInfo", 10, REG_SERVICE_INFO_NULL}, [] { return ossSetServiceInfo(nullptr); });
    expect({"ossSetServiceInfo", 20, REG_INFO_VERSION_MISSING}, [&] { return ossSetServiceInfo(&serviceInfo); });
    expect({"ossSetInstanceInfo", 10, REG_INSTANCE_INFO_NULL}, [] { return ossSetInstanceInfo(nullptr); });
    expect({"ossSetInstanceInfo", 20, REG_INFO_VERSION_MISSING}, [&] { return ossSetInstanceInfo(&instanceInfo); });
    expect({"ossGetServiceInfo", 10, REG_SERVICE_INFO_NULL},
           [&] { return ossGetServiceInfo(service, VERSION, nullptr, nullptr); });
    expect({"ossGetInstanceInfo", 10, REG_INSTANCE_INFO_NULL},
           [&] { return ossGetInstanceInfo(service, VERSION, service, nullptr); });
    expect({"ossRemoveServiceInfo", 10, REG_INFO_SERVICE_MISSING}, [&] { return ossRemoveServiceInfo(none, VERSION); });
    expect({"ossRemoveInstanceInfo", 10, REG_INFO_INSTANCE_MISSING},
           [&] { return ossRemoveInstanceInfo(service, VERSION, none); });
    expect({"ossOpenInstanceList", 10, REG_LIST_HANDLE_NULL},
           [] { return ossOpenInstanceList("copies", nullptr, false); });
    expect({"ossOpenInstanceList", 30, REG_LIST_SERVICE_NULL},
           [&] { return ossOpenInstanceList(nullptr, &list, false); });
    expect({"ossOpenServiceList", 10, REG_LIST_HANDLE_NULL}, [] { return ossOpenServiceList(nullptr); });
    expect({"ossGetNextService", 10, REG_LIST_HANDLE_NULL}, [&] { return ossGetNextService(nullptr, &serviceInfo); });
    expect({"ossGetNextInstance", 10, REG_LIST_HANDLE_NULL},
           [&] { return ossGetNextInstance(nullptr, &instanceInfo); });
    expect({"ossCloseServiceList", 10, REG_LIST_HANDLE_NULL}, [] { return ossCloseServiceList(nullptr); });
    expect({"ossCloseInstanceList", 10, REG_LIST_HANDLE_NULL}, [] { return ossCloseInstanceList(nullptr); });
    lay("");
    rig_.check(ossOpenServiceList(&list) == 0, "the services are not listed");
    expect({"ossGetNextService", 20, REG_SERVICE_INFO_NULL}, [&] { return ossGetNextService(list, nullptr); });
    (void)ossCloseServiceList(list);
    rig_.check(ossOpenInstanceList("copies", &list, false) == 0, "the instances are not listed");
    expect({"ossGetNextInstance", 20, REG_INSTANCE_INFO_NULL}, [&] { return ossGetNextInstance(list, nullptr); });
    (void)ossCloseInstanceList(list);
}

void Refusals::globalCalls() {
    if (!canFailCalls()) {
        return;  // told by calls()
    }
    lay("");
    (void)addService(1);
    const std::size_t length = bytesOf(file_).value_or("").size();
    (void)addService(2);
    // Carried once, an image says of each field whether it is there, and is carried as it stands from then on.
    std::string images = bytesOf(file_).value_or("").substr(0, length);
    while (images.size() < 256UL * 1024) {
        images += images;
    }
    lay(images);
    expectFailing({"GenRegBin::Add", 590, REG_COPY_WRITE_FAILED}, REG_ADD_SERVICE_FAILED, ENOSPC,
                  isOn(SYS_write, path(".tmp")), [&] { return addService(3); });
    const auto synchronise = [] {
        GlobalReg global;
        return genregSyncGlobalRegFixpackNumber(&global, nullptr);
    };
    lay("");
    expectFailing({"genregSyncGlobalRegFixpackNumber", 50, REG_OPEN_FAILED}, REG_OPEN_FAILED, EIO,
                  isOn(SYS_close, file_), synchronise);
}

// The change log has a fixed place, so this goes on in a world of its own.
void Refusals::changeLog() {
    if (!grantsOwnWorld() || !canFailCalls()) {
        rig_.skip("a change log that cannot be written", "only as root, who is granted mounts and traces");
        return;
    }
    const auto apart = [&](const Picks& picks, const Point& point) {
        lay("");
        expectFailing(point, 0, EIO, picks,
                      [&] { return enterOwnWorld() && ::mknod(LOG, S_IFREG | 0666, 0) == 0 ? addService(1) : 1U; });
    };
    for (const auto& [number, probe] : {std::pair{SYS_write, 20U}, std::pair{SYS_close, 30U}}) {
        apart(isOn(number, LOG), {"GlobalReg::Log", probe, OSS_SYSTEM_ERROR_BASE + EIO});
    }
}

}  // namespace prove

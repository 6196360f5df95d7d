// What the platform refuses.
#include <cstdio>
#include <filesystem>

#include "prove/refusals/Refusals.h"

namespace prove {

void Refusals::platform() {
    const auto refused = [](PlatformCall call, const std::function<unsigned int()>& provoke) {
        return [call, provoke] {
            const Refusal refusal(call, 0);
            return provoke();
        };
    };
    const auto construct = [&] {
        const Binary object(file_);
        return object.code;
    };
    std::filesystem::remove(file_);
    expect({"setRegistryPaths", 30, REG_BASE_NAME_FAILED}, refused(PlatformCall::BaseName, construct));
    expect({"setRegistryPaths", 40, REG_DIRECTORY_NAME_FAILED}, refused(PlatformCall::DirectoryName, construct));
    expect({"GenRegBinVarVal", 20, REG_BASE_NAME_FAILED}, refused(PlatformCall::BaseName, construct));
    expect({"GenRegVarVal", 20, REG_BASE_NAME_FAILED},
           refused(PlatformCall::BaseName, [&] { return Text(file_).code; }));
    Text text(file_);
    expect({"Lock", 60, REFUSED}, refused(PlatformCall::DirectoryName, [&] {
               return text.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT | REG_LOCK_CREATE_DIR, 0);
           }));
    expect({"OpenReg", 30, REFUSED}, refused(PlatformCall::DirectoryName, [&] { return text.OpenReg(REG_OP_ADD); }));
    Text nowhere(rig_.scratch() + "/none/reg");
    expect({"OpenReg", 40, REG_CREATE_DIRECTORY_FAILED},
           refused(PlatformCall::DirectoryCreate, [&] { return nowhere.OpenReg(REG_OP_ADD); }));
    const auto lookInside = [&] {
        lay("a = 1\n");
        Text scanned(file_, REG_FEATURE_GET_IN_SCAN);
        GenRegVarValRecord key = pair("a", nullptr);
        GenRegVarValRecord found = {};
        (void)scanned.OpenScan();
        const Refusal refusal(PlatformCall::New, 0);  // of the scan's read-ahead
        return scanned.Get(VARVAL_MATCH_VARIABLE, &key, &found);
    };
    expect({"GenRegText::Get", 70, REG_NO_RECORD_BUFFER}, lookInside);
    std::filesystem::remove(file_);
    char version[24];
    expect({"ossVersionCodeToString", 20, REG_VERSION_FORMAT_FAILED},
           refused(PlatformCall::Snprintf, [&] { return ossVersionCodeToString(1, version, sizeof version); }));
    GlobalReg global;
    expect({"genregSyncGlobalRegFixpackNumber", 20, REFUSED},
           refused(PlatformCall::LevelInfo, [&] { return genregSyncGlobalRegFixpackNumber(&global, nullptr); }));
    expect({"genregSyncGlobalRegFixpackNumber", 30, REG_OPEN_FILE_FAILED},
           [&] { return genregSyncGlobalRegFixpackNumber(&global, nullptr); });
    std::FILE* const nothing = std::fopen("/dev/null", "w");
    char line[] = "text\n";
    expect({"GenRegWriteLine", 20, REG_NO_WORK_BUFFER},
           refused(PlatformCall::Alloc, [&] { return GenRegWriteLine(line, 80, nothing); }));
    expect({"GenRegWriteLine", 30, REG_FREE_WORK_BUFFER_FAILED},
           refused(PlatformCall::Free, [&] { return GenRegWriteLine(line, 80, nothing); }));
    (void)std::fclose(nothing);
}

}  // namespace prove

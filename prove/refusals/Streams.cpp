// Descriptors that are changed behind an object's back: the core, and the text schemas.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "prove/refusals/Refusals.h"

namespace prove {

void Refusals::streams() {
    lay("a = 1\n");
    expect({"genregLockStatus", 20, OSS_SYSTEM_ERROR_BASE + ENOTDIR},
           [&] { return genregLockStatus(path("/lock").c_str(), nullptr); });
    Text text(file_);
    long long before = -1;
    (void)text.OpenScan();
    expect({"getRegFilePosition", 20, REG_NULL_POINTER}, [&] { return text.getRegFilePosition(nullptr); });
    expect({"setRegFilePosition", 20, REG_NULL_POINTER}, [&] { return text.setRegFilePosition(nullptr); });
    expect({"setRegFilePosition", 30, REG_SET_POSITION_FAILED}, [&] { return text.setRegFilePosition(&before); });
    int pipe[2];
    (void)!::pipe(pipe);
    (void)::dup2(pipe[0], ::fileno(text.regFp));  // a pipe has no position
    long long position = 0;
    expect({"getRegFilePosition", 30, REG_GET_POSITION_FAILED}, [&] { return text.getRegFilePosition(&position); });
    (void)text.CloseScan();
    (void)::close(pipe[0]);
    (void)::close(pipe[1]);

    int ports[8];
    unsigned int rc = 0;
    class Services : public GenRegServices {
    public:
        using GenRegFile::regFp;
        using GenRegServices::GenRegServices;
    };
    Services services(file_.c_str(), &rc);
    (void)services.OpenReg(REG_OP_READ);
    expect({"GetPortnumbers", 15, REG_NO_RECORD_BUFFER}, [&] {
        const Refusal refusal(PlatformCall::New, 0);
        return services.GetPortnumbers(ports);
    });
    blind(services.regFp);
    expect({"GetPortnumbers", 20, REG_READ_FAILED}, [&] { return services.GetPortnumbers(ports); });
    (void)services.CloseReg(REG_OP_READ);

    const auto destroyWithout = [&](const std::function<int(Text&)>& descriptor) {
        Text doomed(file_);
        (void)doomed.Lock(REG_LOCK_EXCLUSIVE | REG_LOCK_NOWAIT, 0);
        (void)doomed.OpenReg(REG_OP_CHANGE);
        (void)::close(descriptor(doomed));
        return 0U;
    };
    expect({"~GenRegFile", 10, REG_CLOSE_LOCK_FAILED}, 0,
           [&] { return destroyWithout([](Text& object) { return object.lockFile.getFileHandle(); }); });
    expect({"~GenRegFile", 20, REG_CLOSE_FILE_FAILED}, 0,
           [&] { return destroyWithout([](Text& object) { return ::fileno(object.regFp); }); });
    expect({"~GenRegFile", 30, REG_CLOSE_TMP_FAILED}, 0,
           [&] { return destroyWithout([](Text& object) { return ::fileno(object.tmpFp); }); });
}

}  // namespace prove

#include <osse/Errors.h>
#include <osse/Time.h>

#include <ctime>

#include "../System.h"

unsigned int ossTimeGetUTC(OSSTime* now) {
    if (now == nullptr) {
        return OSS_NULL_POINTER;
    }
    std::timespec time{};
    if (::clock_gettime(CLOCK_REALTIME, &time) != 0) {
        return ossErrorMapSystem(errno);
    }
    *now = OSSTime{time.tv_sec, time.tv_nsec};
    return 0;
}

unsigned long ossThreadID() {
    return platform::threadNumber();
}

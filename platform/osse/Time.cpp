#include <osse/Errors.h>
#include <osse/Time.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

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
#if defined(__APPLE__)
    return ::pthread_mach_thread_np(::pthread_self());
#else
    return static_cast<unsigned long>(::gettid());
#endif
}

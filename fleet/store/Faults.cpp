#include "store/Faults.h"

#include <string_view>
#include <utility>

namespace fleet {

namespace {

bool says(const grpc::Status& status, std::string_view words) {
    return status.error_message().find(words) != std::string::npos;
}

// The store has one code for many things, and ends a watch without any: its words go first.
struct Saying {
    std::string_view words;
    Trouble trouble;
};
constexpr Saying SAYINGS[] = {
    {"etcdserver: mvcc: database space exceeded", Trouble::FULL},
    {"etcdserver: request is too large", Trouble::TOO_LARGE},
    {"etcdserver: too many operations in txn request", Trouble::TOO_LARGE},
    {"larger than max", Trouble::TOO_LARGE},  // gRPC's own limit of a message, here or there
    {"required revision has been compacted", Trouble::COMPACTED},
    {"required revision is a future revision", Trouble::RESET},
    {"etcdserver: permission denied", Trouble::DENIED},
    {"etcdserver: authentication failed", Trouble::DENIED},
    {"etcdserver: user name", Trouble::DENIED},  // "is empty", "not found"
    {"etcdserver: invalid auth token", Trouble::DENIED},
    {"etcdserver: revision of auth store is old", Trouble::DENIED},
    {"etcdserver: no leader", Trouble::UNREACHED},
    {"etcdserver: server stopped", Trouble::UNREACHED},
};

Trouble troubleOf(const grpc::Status& status) {
    for (const Saying& saying : SAYINGS) {
        if (says(status, saying.words)) {
            return saying.trouble;
        }
    }
    switch (status.error_code()) {
        case grpc::StatusCode::UNAVAILABLE:
        case grpc::StatusCode::DEADLINE_EXCEEDED:
        case grpc::StatusCode::CANCELLED:
        case grpc::StatusCode::RESOURCE_EXHAUSTED:  // too many requests, or pings
            return Trouble::UNREACHED;
        case grpc::StatusCode::INTERNAL:  // a stream that was reset, unless the store says so itself
            return says(status, "etcdserver: ") ? Trouble::REFUSED : Trouble::UNREACHED;
        case grpc::StatusCode::UNKNOWN:
            return says(status, "Stream removed") ? Trouble::UNREACHED : Trouble::REFUSED;
        case grpc::StatusCode::PERMISSION_DENIED:
        case grpc::StatusCode::UNAUTHENTICATED:
            return Trouble::DENIED;
        default:
            return Trouble::REFUSED;
    }
}

}  // namespace

StoreFailure failureOf(const grpc::Status& status, const std::string& endpoint, Asked asked) {
    StoreFailure failure = failureOf(troubleOf(status), endpoint, status.error_message());
    failure.mayBeDone = asked == Asked::CHANGE && failure.trouble == Trouble::UNREACHED;
    return failure;
}

StoreFailure failureOf(Trouble trouble, const std::string& endpoint, std::string message) {
    StoreFailure failure;
    failure.trouble = trouble;
    failure.endpoint = endpoint;
    failure.message = std::move(message);
    return failure;
}

bool wantsToken(const grpc::Status& status) {
    return status.error_code() == grpc::StatusCode::UNAUTHENTICATED ||
           says(status, "etcdserver: revision of auth store is old");
}

bool knowsNoUsers(const grpc::Status& status) {
    return says(status, "etcdserver: authentication is not enabled");
}

}  // namespace fleet

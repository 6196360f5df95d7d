// One connection to one endpoint, and the calls over it.
#pragma once

#include <etcd.grpc.pb.h>
#include <grpcpp/channel.h>
#include <grpcpp/client_context.h>
#include <grpcpp/support/time.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "store/Faults.h"
#include "store/Store.h"

namespace fleet {

inline constexpr std::chrono::milliseconds CONNECT_LIMIT{1500};
inline constexpr std::chrono::milliseconds CALL_LIMIT{5000};

// The time so far ahead, as gRPC takes it, by the clock that nobody sets.
[[nodiscard]] gpr_timespec ahead(std::chrono::milliseconds duration);

// What outlives a connection.
struct Session {
    StoreAccess access;
    std::string token;  // of the user that is logged in; empty: none
};

class Connection {
public:
    // Connects, and throws a StoreFailure where that fails. The session outlives the connection.
    Connection(Session& session, std::string endpoint);

    [[nodiscard]] const std::string& endpoint() const noexcept { return endpoint_; }
    // As far as this side knows. One that is not is never mended: what mends itself waits for longer than its user
    // does.
    [[nodiscard]] bool isUp() const;

    using Call = std::function<grpc::Status(grpc::ClientContext&)>;
    // Makes the call, and throws its failure. It is made twice only where the token had run out.
    void run(Asked asked, const Call& call);
    // Logs in where there is a user without a token.
    void signIn();
    void signInAnew();
    // Of a call: whom it is from, and that it wants a member with a leader. One that is cut off answers nothing, else.
    void introduce(grpc::ClientContext& context) const;

    etcdserverpb::KV::Stub& keys() { return *keys_; }
    etcdserverpb::Lease::Stub& leases() { return *leases_; }
    etcdserverpb::Watch::Stub& watches() { return *watches_; }

private:
    void connect();
    [[nodiscard]] std::string wordsOfFailure();

    Session& session_;
    std::string endpoint_;
    std::shared_ptr<grpc::Channel> channel_;
    std::unique_ptr<etcdserverpb::KV::Stub> keys_;
    std::unique_ptr<etcdserverpb::Lease::Stub> leases_;
    std::unique_ptr<etcdserverpb::Watch::Stub> watches_;
    std::unique_ptr<etcdserverpb::Auth::Stub> users_;
};

}  // namespace fleet

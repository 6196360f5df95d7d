#include "store/Connection.h"

#include <grpcpp/create_channel.h>
#include <grpcpp/security/credentials.h>
#include <grpcpp/support/channel_arguments.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <utility>

namespace fleet {

namespace {

// What it has to say goes into failures; on standard error it would stand between the lines of the program.
void silenceGrpc() {
    static std::once_flag once;
    std::call_once(once, [] { ::setenv("GRPC_VERBOSITY", "NONE", 0); });
}

std::string readPem(const std::string& path, const std::string& endpoint) {
    if (path.empty()) {
        return {};
    }
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    if (!file.is_open() || file.bad() || bytes.empty()) {
        const std::string reason = errno != 0 ? std::strerror(errno) : "it is empty";
        throw failureOf(Trouble::DENIED, endpoint, "cannot read " + path + ": " + reason);
    }
    return bytes;
}

std::shared_ptr<grpc::ChannelCredentials> credentials(const StoreAccess& access, const std::string& endpoint) {
    if (access.insecure) {
        return grpc::InsecureChannelCredentials();
    }
    grpc::SslCredentialsOptions options;
    options.pem_root_certs = readPem(access.ca, endpoint);
    options.pem_cert_chain = readPem(access.certificate, endpoint);
    options.pem_private_key = readPem(access.key, endpoint);
    return grpc::SslCredentials(options);
}

grpc::ChannelArguments arguments(const StoreAccess& access) {
    grpc::ChannelArguments all;
    // A channel that shares its connections inherits the waiting time of those that failed before.
    all.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    // The longer of both is how long an attempt that was given up keeps its descriptor, and how soon a channel tries a
    // second time, which it is not there for.
    all.SetInt(GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 2000);
    all.SetInt(GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, 2000);
    all.SetInt(GRPC_ARG_ENABLE_RETRIES, 0);
    // The store takes pings more often than every five seconds, or of a connection without calls, for an attack.
    all.SetInt(GRPC_ARG_KEEPALIVE_TIME_MS, 10000);
    all.SetInt(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, 3000);
    all.SetInt(GRPC_ARG_KEEPALIVE_PERMIT_WITHOUT_CALLS, 0);
    all.SetInt(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
    all.SetMaxReceiveMessageSize(access.answerBytes);
    // The endpoints are reached as they are written.
    all.SetInt(GRPC_ARG_ENABLE_HTTP_PROXY, 0);
    all.SetInt(GRPC_ARG_SERVICE_CONFIG_DISABLE_RESOLUTION, 1);
    return all;
}

}  // namespace

gpr_timespec ahead(std::chrono::milliseconds duration) {
    return gpr_time_add(gpr_now(GPR_CLOCK_MONOTONIC), gpr_time_from_millis(duration.count(), GPR_TIMESPAN));
}

Connection::Connection(Session& session, std::string endpoint) : session_(session), endpoint_(std::move(endpoint)) {
    silenceGrpc();
    channel_ = grpc::CreateCustomChannel("dns:///" + endpoint_, credentials(session_.access, endpoint_),
                                         arguments(session_.access));
    keys_ = etcdserverpb::KV::NewStub(channel_);
    leases_ = etcdserverpb::Lease::NewStub(channel_);
    watches_ = etcdserverpb::Watch::NewStub(channel_);
    users_ = etcdserverpb::Auth::NewStub(channel_);
    connect();
}

void Connection::connect() {
    const auto limit = ahead(CONNECT_LIMIT);
    for (;;) {
        const grpc_connectivity_state state = channel_->GetState(true);
        if (state == GRPC_CHANNEL_READY) {
            return;
        }
        if (state == GRPC_CHANNEL_TRANSIENT_FAILURE || state == GRPC_CHANNEL_SHUTDOWN) {
            throw failureOf(Trouble::UNREACHED, endpoint_, wordsOfFailure());
        }
        if (!channel_->WaitForStateChange(state, limit)) {
            throw failureOf(Trouble::UNREACHED, endpoint_, "no connection in 1.5 s");
        }
    }
}

// Only a call hears what the channel met. This one would do nothing, if it were made after all.
std::string Connection::wordsOfFailure() {
    grpc::ClientContext context;
    context.set_deadline(ahead(CONNECT_LIMIT));
    etcdserverpb::RangeRequest request;
    request.set_key(std::string(1, '\0'));
    request.set_serializable(true);
    request.set_count_only(true);
    etcdserverpb::RangeResponse answer;
    const grpc::Status status = keys_->Range(&context, request, &answer);
    return status.ok() || status.error_message().empty() ? "no connection" : status.error_message();
}

bool Connection::isUp() const {
    return channel_->GetState(false) == GRPC_CHANNEL_READY;
}

void Connection::run(Asked asked, const Call& call) {
    const bool hadToken = !session_.token.empty();
    signIn();
    grpc::Status status;
    for (bool again = hadToken;; again = false) {
        grpc::ClientContext context;
        context.set_deadline(ahead(CALL_LIMIT));
        introduce(context);
        status = call(context);
        if (!again || !wantsToken(status)) {
            break;
        }
        signInAnew();
    }
    if (!status.ok()) {
        throw failureOf(status, endpoint_, asked);
    }
}

void Connection::signIn() {
    if (!session_.access.user.empty() && session_.token.empty()) {
        signInAnew();
    }
}

void Connection::signInAnew() {
    session_.token.clear();
    grpc::ClientContext context;
    context.set_deadline(ahead(CALL_LIMIT));
    introduce(context);
    etcdserverpb::AuthenticateRequest request;
    request.set_name(session_.access.user);
    request.set_password(session_.access.password);
    etcdserverpb::AuthenticateResponse answer;
    const grpc::Status status = users_->Authenticate(&context, request, &answer);
    if (status.ok()) {
        session_.token = answer.token();
    } else if (!knowsNoUsers(status)) {
        throw failureOf(status, endpoint_, Asked::READ);
    }
}

void Connection::introduce(grpc::ClientContext& context) const {
    context.AddMetadata("hasleader", "true");
    if (!session_.token.empty()) {
        context.AddMetadata("token", session_.token);
    }
}

}  // namespace fleet

#include "store/Store.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <utility>

#include "store/Connection.h"
#include "store/Faults.h"
#include "store/StoreImpl.h"

namespace fleet {

namespace {

using namespace etcdserverpb;

// As many operations as the store takes at once.
constexpr std::size_t KEYS_AT_ONCE = 128;
// Of the first page: few enough for the largest values that a store takes, or nearly so.
constexpr std::int64_t FIRST_PAGE = 64;
constexpr std::int64_t LARGEST_PAGE = 4096;
constexpr std::int64_t PAGE_BYTES = 4 << 20;

StoreHead headOf(const ResponseHeader& header, std::int64_t count = 0) {
    return {header.cluster_id(), header.revision(), count};
}

// How many keys of this average size make a page.
std::int64_t pageOf(std::size_t bytes, std::int64_t keys) {
    const std::int64_t average = std::max<std::int64_t>(static_cast<std::int64_t>(bytes) / keys, 1);
    return std::clamp<std::int64_t>(PAGE_BYTES / average, 1, LARGEST_PAGE);
}

}  // namespace

StoredValue storedValue(KeyValue&& from) {
    return {std::move(*from.mutable_key()), std::move(*from.mutable_value()), from.create_revision(),
            from.mod_revision(), from.lease()};
}

std::string endOfPrefix(std::string prefix) {
    while (!prefix.empty() && prefix.back() == '\xff') {
        prefix.pop_back();
    }
    if (prefix.empty()) {
        return std::string(1, '\0');  // the end of all keys
    }
    prefix.back() = static_cast<char>(static_cast<unsigned char>(prefix.back()) + 1);
    return prefix;
}

void setPrefix(const std::string& prefix, std::string* key, std::string* end) {
    *key = prefix.empty() ? std::string(1, '\0') : prefix;
    *end = endOfPrefix(prefix);
}

const std::string& Store::Impl::here() const {
    static const std::string NONE;
    return session.access.endpoints.empty() ? NONE : session.access.endpoints[at];
}

Connection& Store::Impl::connected() {
    last = here();
    if (last.empty()) {
        throw failureOf(Trouble::UNREACHED, last, "no endpoint is known");
    }
    if (connection == nullptr || !connection->isUp()) {
        connection.reset();
        connection = std::make_unique<Connection>(session, last);
    }
    return *connection;
}

void Store::Impl::goOn() {
    connection.reset();
    at = session.access.endpoints.empty() ? 0 : (at + 1) % session.access.endpoints.size();
}

void Store::Impl::ask(Asked asked, const std::function<grpc::Status(Connection&, grpc::ClientContext&)>& call) {
    try {
        Connection& to = connected();
        to.run(asked, [&](grpc::ClientContext& context) { return call(to, context); });
    } catch (const StoreFailure& failure) {
        if (failure.trouble == Trouble::UNREACHED) {
            goOn();
        }
        throw;
    }
}

TxnResponse Store::Impl::transact(Asked asked, const TxnRequest& request) {
    TxnResponse answer;
    ask(asked, [&](Connection& to, grpc::ClientContext& context) {
        answer.Clear();
        return to.keys().Txn(&context, request, &answer);
    });
    return answer;
}

RangeResponse Store::Impl::range(const RangeRequest& request) {
    RangeResponse answer;
    ask(Asked::READ, [&](Connection& to, grpc::ClientContext& context) {
        answer.Clear();
        return to.keys().Range(&context, request, &answer);
    });
    return answer;
}

// At a revision, or (0) at that of now, which the first answer fixes for the rest.
void Store::Impl::getSome(std::span<const std::string> keys, StoreHead& head, std::vector<StoredValue>& found) {
    TxnRequest request;
    for (const std::string& key : keys) {
        RangeRequest* const wanted = request.add_success()->mutable_request_range();
        wanted->set_key(key);
        wanted->set_revision(head.revision);
    }
    try {
        TxnResponse answer = transact(Asked::READ, request);
        if (head.revision == 0) {
            head = headOf(answer.header());
        }
        for (ResponseOp& one : *answer.mutable_responses()) {
            for (KeyValue& pair : *one.mutable_response_range()->mutable_kvs()) {
                found.push_back(storedValue(std::move(pair)));
            }
        }
    } catch (const StoreFailure& failure) {
        if (failure.trouble != Trouble::TOO_LARGE || keys.size() == 1) {
            throw;
        }
        getSome(keys.first(keys.size() / 2), head, found);
        getSome(keys.subspan(keys.size() / 2), head, found);
    }
}

Store::Store(StoreAccess access) : impl_(std::make_unique<Impl>()) {
    impl_->session.access = std::move(access);
}

Store::~Store() = default;

const StoreAccess& Store::access() const noexcept {
    return impl_->session.access;
}

const std::string& Store::endpoint() const noexcept {
    return impl_->last;
}

void Store::reconnect() {
    impl_->connection.reset();
}

StoreHead Store::get(const std::vector<std::string>& keys, std::vector<StoredValue>& found) {
    found.clear();
    StoreHead head;
    for (std::size_t begin = 0; begin < keys.size(); begin += KEYS_AT_ONCE) {
        const std::span all(keys);
        impl_->getSome(all.subspan(begin, std::min(KEYS_AT_ONCE, keys.size() - begin)), head, found);
    }
    head.count = static_cast<std::int64_t>(found.size());
    return head;
}

StoreHead Store::list(const std::string& prefix, const std::function<void(StoredValue&&)>& take) {
    RangeRequest request;
    setPrefix(prefix, request.mutable_key(), request.mutable_range_end());
    request.set_limit(FIRST_PAGE);
    StoreHead head;
    for (bool more = true; more;) {
        RangeResponse page;
        try {
            page = impl_->range(request);
        } catch (const StoreFailure& failure) {
            if (failure.trouble != Trouble::TOO_LARGE || request.limit() == 1) {
                throw;
            }
            request.set_limit(std::max<std::int64_t>(request.limit() / 4, 1));
            continue;
        }
        if (request.revision() == 0) {
            head = headOf(page.header());
            request.set_revision(head.revision);
        }
        head.count += page.kvs_size();
        more = page.more() && page.kvs_size() > 0;
        if (more) {
            request.set_key(page.kvs(page.kvs_size() - 1).key() + '\0');
            request.set_limit(pageOf(page.ByteSizeLong(), page.kvs_size()));
        }
        for (KeyValue& pair : *page.mutable_kvs()) {
            take(storedValue(std::move(pair)));
        }
    }
    return head;
}

StoreHead Store::count(const std::string& prefix) {
    RangeRequest request;
    setPrefix(prefix, request.mutable_key(), request.mutable_range_end());
    request.set_count_only(true);
    const RangeResponse answer = impl_->range(request);
    return headOf(answer.header(), answer.count());
}

Store::Exchange Store::exchange(const std::string& key, std::int64_t expectedRevision, const std::string& value,
                                std::int64_t lease) {
    TxnRequest request;
    Compare* const compare = request.add_compare();
    compare->set_target(Compare::MOD);
    compare->set_key(key);
    compare->set_mod_revision(expectedRevision);
    PutRequest* const put = request.add_success()->mutable_request_put();
    put->set_key(key);
    put->set_value(value);
    put->set_lease(lease);
    request.add_failure()->mutable_request_range()->set_key(key);
    TxnResponse answer = impl_->transact(Asked::CHANGE, request);
    Exchange result{answer.succeeded(), answer.header().revision(), std::nullopt};
    if (!result.done && answer.responses_size() > 0) {
        RangeResponse* const there = answer.mutable_responses(0)->mutable_response_range();
        if (there->kvs_size() > 0) {
            result.found = storedValue(std::move(*there->mutable_kvs(0)));
        }
    }
    return result;
}

std::int64_t Store::remove(const std::vector<std::string>& keys) {
    std::int64_t removed = 0;
    for (std::size_t begin = 0; begin < keys.size(); begin += KEYS_AT_ONCE) {
        TxnRequest request;
        for (std::size_t i = begin; i < std::min(begin + KEYS_AT_ONCE, keys.size()); ++i) {
            request.add_success()->mutable_request_delete_range()->set_key(keys[i]);
        }
        const TxnResponse answer = impl_->transact(Asked::CHANGE, request);
        for (const ResponseOp& one : answer.responses()) {
            removed += one.response_delete_range().deleted();
        }
    }
    return removed;
}

Store::Lease Store::grant(std::int64_t seconds) {
    LeaseGrantRequest request;
    request.set_ttl(seconds);
    LeaseGrantResponse answer;
    impl_->ask(Asked::CHANGE, [&](Connection& to, grpc::ClientContext& context) {
        answer.Clear();
        return to.leases().LeaseGrant(&context, request, &answer);
    });
    if (!answer.error().empty()) {
        throw failureOf(Trouble::REFUSED, endpoint(), answer.error());
    }
    return {answer.id(), answer.ttl()};
}

std::int64_t Store::renew(std::int64_t lease) {
    LeaseKeepAliveRequest request;
    request.set_id(lease);
    LeaseKeepAliveResponse answer;
    impl_->ask(Asked::READ, [&](Connection& to, grpc::ClientContext& context) {
        const auto stream = to.leases().LeaseKeepAlive(&context);
        const bool answered = stream->Write(request) && stream->Read(&answer);
        stream->WritesDone();
        const grpc::Status end = stream->Finish();
        return answered ? grpc::Status::OK : end.ok() ? grpc::Status(grpc::StatusCode::UNAVAILABLE, "no answer") : end;
    });
    return std::max<std::int64_t>(answer.ttl(), 0);
}

void Store::revoke(std::int64_t lease) {
    LeaseRevokeRequest request;
    request.set_id(lease);
    impl_->ask(Asked::CHANGE, [&](Connection& to, grpc::ClientContext& context) {
        LeaseRevokeResponse answer;
        const grpc::Status status = to.leases().LeaseRevoke(&context, request, &answer);
        return status.error_code() == grpc::StatusCode::NOT_FOUND ? grpc::Status::OK : status;
    });
}

}  // namespace fleet

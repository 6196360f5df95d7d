// What is behind the door of Store.h, for the sources of this folder.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "store/Connection.h"
#include "store/Store.h"

namespace fleet {

class Store::Impl {
public:
    Session session;
    std::unique_ptr<Connection> connection;
    std::size_t at = 0;  // of the endpoints, the next call's
    std::string last;

    [[nodiscard]] const std::string& here() const;
    // One that is up, made where there is none.
    Connection& connected();
    // To the next endpoint.
    void goOn();

    void ask(Asked asked, const std::function<grpc::Status(Connection&, grpc::ClientContext&)>& call);
    etcdserverpb::TxnResponse transact(Asked asked, const etcdserverpb::TxnRequest& request);
    etcdserverpb::RangeResponse range(const etcdserverpb::RangeRequest& request);
    void getSome(std::span<const std::string> keys, StoreHead& head, std::vector<StoredValue>& found);
};

[[nodiscard]] StoredValue storedValue(etcdserverpb::KeyValue&& from);
// As a range of keys.
void setPrefix(const std::string& prefix, std::string* key, std::string* end);

}  // namespace fleet

// The etcd that the picture of many machines is kept in: a few calls, each of which ends in time.
//
// Every call goes to one endpoint over a connection of its own making (connect limit 1.5 s, deadline 5 s, keepalive
// 10 s / 3 s). One that is UNREACHED closes the connection, and the next call goes to the next endpoint. A call is
// never repeated in here, but for a token that had run out: whether to try again, and when, is for the caller, or for
// patiently(). What speaks gRPC is known to the sources of this folder alone.
//
// A store belongs to one thread; a watch of it may live beside.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fleet {

struct StoreAccess {
    std::vector<std::string> endpoints;  // "host:port"
    bool insecure = false;               // plaintext; whoever reads the configuration sees to it that this is loopback
    std::string ca;                      // paths of PEM files; read when a connection is made
    std::string certificate;
    std::string key;
    std::string user;  // of a token in place of a certificate's identity; empty: none
    std::string password;
    int answerBytes = 64 << 20;  // of an answer that is taken; a listing asks for smaller pages where one is larger
};

enum class Trouble {
    UNREACHED,  // down, silent, without a leader, or of another certificate authority
    DENIED,     // this identity may not do it, or is none; or its files cannot be read
    FULL,       // the store's quota is used up
    TOO_LARGE,  // for a request, or for an answer
    COMPACTED,  // what a watch was to begin with is gone; or a listing's revision, between two pages
    RESET,      // the store went back behind what was seen of it, or is another one: to be listed anew
    REFUSED,    // anything else that the store says
};

struct StoreFailure : std::exception {
    Trouble trouble = Trouble::REFUSED;
    std::string endpoint;
    std::string message;     // the store's or the connection's own words
    bool mayBeDone = false;  // a change that may have been made all the same: read what is there

    [[nodiscard]] const char* what() const noexcept override { return message.c_str(); }
};

struct StoredValue {
    std::string key;
    std::string value;
    std::int64_t createRevision = 0;
    std::int64_t modRevision = 0;
    std::int64_t lease = 0;  // 0: none
};

// Of the store as it answered.
struct StoreHead {
    std::uint64_t cluster = 0;
    std::int64_t revision = 0;
    std::int64_t count = 0;  // of the keys that were asked for
};

class Store {
public:
    explicit Store(StoreAccess access);
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    [[nodiscard]] const StoreAccess& access() const noexcept;
    // The endpoint of the last call.
    [[nodiscard]] const std::string& endpoint() const noexcept;
    // Closes the connection: the next one reads the certificates anew.
    void reconnect();

    // Every one below throws a StoreFailure.

    // These keys, as far as they are there, at one revision. Reads are linearizable throughout.
    StoreHead get(const std::vector<std::string>& keys, std::vector<StoredValue>& found);
    // Every key that begins so, in their order, in pages at one revision. Where it fails, some may have been taken.
    StoreHead list(const std::string& prefix, const std::function<void(StoredValue&&)>& take);
    // How many there are, without them.
    StoreHead count(const std::string& prefix);

    struct Exchange {
        bool done = false;
        std::int64_t revision = 0;         // of the store afterwards; where done, of the key
        std::optional<StoredValue> found;  // where not done: what is there, none when nothing is
    };
    // Puts the value if the key's revision is the expected one (0: there is no such key). lease: 0 for none.
    Exchange exchange(const std::string& key, std::int64_t expectedRevision, const std::string& value,
                      std::int64_t lease = 0);
    // Deletes them, and answers how many were there.
    std::int64_t remove(const std::vector<std::string>& keys);

    struct Lease {
        std::int64_t id = 0;
        std::int64_t seconds = 0;  // as granted
    };
    Lease grant(std::int64_t seconds);
    // The seconds that it has again; 0: there is no such lease any more.
    std::int64_t renew(std::int64_t lease);
    // And its keys; one that is gone already is as good.
    void revoke(std::int64_t lease);

    // Runs the work until it is not UNREACHED any more, or the time is over: at once at each endpoint in turn, then
    // with full jitter (0.2 s, twice that each time, 30 s at most). 0 seconds: each endpoint once.
    void patiently(double seconds, const std::function<void()>& work);

private:
    friend class StoreWatch;
    class Impl;
    std::unique_ptr<Impl> impl_;
};

// How long to wait before the next attempt, at random within what the number of failures allows: seconds.
[[nodiscard]] double jitter(unsigned int failures);

// What happens to the keys that begin so, from a revision on. It has a connection of its own, to the store's endpoint
// of that time. It belongs to one thread, which may be another one than the store's.
class StoreWatch {
public:
    struct Options {
        int beatMilliseconds = 30000;  // how often the store is asked whether it is there and still the same
    };
    struct Event {
        StoredValue now;  // of a deleted one: the key, and the revision that deleted it
        bool deleted = false;
    };
    struct News {
        std::vector<Event> events;  // none: a beat was answered
        std::int64_t revision = 0;  // of these keys, everything up to this has been told
    };

    // from: of the first revision to be told, one behind that of the listing, or behind the last one told. seen: of
    // that listing. Made once the store has answered that it is the same; else throws what next() does, and where it is
    // UNREACHED, the store goes on to its next endpoint.
    StoreWatch(Store& store, const std::string& prefix, std::int64_t from, StoreHead seen);
    StoreWatch(Store& store, const std::string& prefix, std::int64_t from, StoreHead seen, Options options);
    ~StoreWatch();
    StoreWatch(const StoreWatch&) = delete;
    StoreWatch& operator=(const StoreWatch&) = delete;

    // None when the time was over first. Throws a StoreFailure, and then the watch is at its end: UNREACHED (watch on
    // from the last revision told), COMPACTED or RESET (list anew), DENIED. To be called every few seconds: a
    // connection that nobody looks at does not see the answers to its pings.
    [[nodiscard]] std::optional<News> next(int milliseconds);

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace fleet

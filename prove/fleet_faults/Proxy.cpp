#include "prove/fleet_faults/Proxy.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <stdexcept>
#include <string_view>
#include <vector>

namespace prove {
namespace {

constexpr int LOOK_MILLISECONDS = 1000;
constexpr long LONGEST_SEND = 2;  // seconds: of one who does not read any more

sockaddr_in loopback(unsigned int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void prepare(int socket) {
    const int yes = 1;
    const timeval limit = {LONGEST_SEND, 0};
    (void)::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
    (void)::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
}

bool sendAll(int to, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(to, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

}  // namespace

Proxy::Proxy(unsigned int target) : target_(target), listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_, plain, size) != 0 || ::listen(listener_, 64) != 0 ||
        ::getsockname(listener_, plain, &size) != 0 || ::pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) {
        throw std::runtime_error("a proxy cannot be made");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { run(); });
}

Proxy::~Proxy() {
    ends_ = true;
    wake();
    thread_.join();
    for (const int descriptor : {listener_, wake_[0], wake_[1]}) {
        (void)::close(descriptor);
    }
}

void Proxy::pass() {
    endAfter(0);
    set(Way::PASS);
}

void Proxy::hold() {
    set(Way::HOLD);
}

void Proxy::refuse() {
    set(Way::REFUSE);
}

void Proxy::endAfter(std::size_t bytes) {
    mostAnswered_ = bytes;
}

void Proxy::swallowAnswerTo(const std::string& words) {
    const std::lock_guard lock(mutex_);
    words_ = words;
    swallowed_ = false;
}

void Proxy::set(Way way) {
    way_ = way;
    wake();
}

void Proxy::wake() const {
    (void)!::write(wake_[1], "", 1);
}

void Proxy::run() {
    while (!ends_) {
        const bool holds = way_ == Way::HOLD;
        std::vector<pollfd> polled = {{wake_[0], POLLIN, 0}, {listener_, POLLIN, 0}};
        for (const Pair& pair : pairs_) {
            // A negative descriptor is passed over.
            polled.push_back({holds ? -1 : pair.client, POLLIN, 0});
            polled.push_back({holds ? -1 : pair.server, POLLIN, 0});
        }
        (void)::poll(polled.data(), polled.size(), LOOK_MILLISECONDS);
        char ignored[64];
        while (::read(wake_[0], ignored, sizeof ignored) > 0) {
        }
        std::size_t at = 2;
        for (Pair& pair : pairs_) {
            for (const bool fromClient : {true, false}) {
                if (polled[at++].revents != 0 && !pair.over && way_ == Way::PASS) {
                    move(pair, fromClient);
                }
            }
            pair.over = pair.over || way_ == Way::REFUSE;
        }
        if (polled[1].revents != 0) {
            accept();
        }
        pairs_.remove_if([](const Pair& pair) {
            return pair.over && ::close(pair.client) == 0 && (pair.server < 0 || ::close(pair.server) == 0);
        });
    }
    for (const Pair& pair : pairs_) {
        (void)::close(pair.client);
        (void)::close(pair.server);
    }
}

void Proxy::accept() {
    Pair pair;
    pair.client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (pair.client < 0) {
        return;
    }
    pair.server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    prepare(pair.client);
    prepare(pair.server);
    const sockaddr_in address = loopback(target_);
    pair.over =
        way_ == Way::REFUSE || ::connect(pair.server, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0;
    pairs_.push_back(pair);
}

void Proxy::move(Pair& pair, bool fromClient) {
    char buffer[65536];
    const ssize_t got = ::recv(fromClient ? pair.client : pair.server, buffer, sizeof buffer, 0);
    if (got <= 0) {
        pair.over = true;
        return;
    }
    const std::string_view bytes(buffer, static_cast<std::size_t>(got));
    if (fromClient) {
        const std::lock_guard lock(mutex_);
        if (!words_.empty() && bytes.find(words_) != std::string_view::npos) {
            words_.clear();
            pair.mute = true;
            swallowed_ = true;
        }
    } else {
        pair.answered += bytes.size();
        const std::size_t most = mostAnswered_;
        pair.over = most != 0 && pair.answered > most;
    }
    if (!pair.over && (fromClient || !pair.mute)) {
        pair.over = !sendAll(fromClient ? pair.server : pair.client, bytes);
    }
}

}  // namespace prove

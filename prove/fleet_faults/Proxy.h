// Stands between clients and a server of the loopback, and is the cable that breaks.
#pragma once

#include <atomic>
#include <cstddef>
#include <list>
#include <mutex>
#include <string>
#include <thread>

namespace prove {

class Proxy {
public:
    // To that port, as if it were not there.
    explicit Proxy(unsigned int target);
    ~Proxy();
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;

    [[nodiscard]] unsigned int port() const { return port_; }
    [[nodiscard]] std::string endpoint() const { return "127.0.0.1:" + std::to_string(port_); }

    void pass();
    // Connections stay, new ones are taken, and nothing goes through: a cable that was cut.
    void hold();
    // Ends all connections, and each new one.
    void refuse();
    // Ends a connection that so many bytes of answers have gone through; 0: none.
    void endAfter(std::size_t bytes);
    // The next client that says this (within one read) is heard by the server, and hears nothing any more itself.
    void swallowAnswerTo(const std::string& words);
    [[nodiscard]] bool hasSwallowed() const { return swallowed_; }

private:
    enum class Way { PASS, HOLD, REFUSE };
    struct Pair {
        int client = -1;
        int server = -1;
        std::size_t answered = 0;
        bool mute = false;
        bool over = false;
    };

    void run();
    void accept();
    void move(Pair& pair, bool fromClient);
    void set(Way way);
    void wake() const;

    unsigned int target_;
    unsigned int port_ = 0;
    int listener_ = -1;
    int wake_[2] = {-1, -1};
    std::atomic<Way> way_{Way::PASS};
    std::atomic<std::size_t> mostAnswered_{0};
    std::atomic<bool> swallowed_{false};
    std::atomic<bool> ends_{false};
    std::mutex mutex_;
    std::string words_;
    std::list<Pair> pairs_;  // the thread's
    std::thread thread_;
};

}  // namespace prove

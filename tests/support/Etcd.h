// etcd servers of a test's or a rig's own: on free ports of the loopback, in a folder that they are given, and gone
// with the process that started them, however it ends.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

// Keys and certificates of one authority, made by openssl in a folder that is there.
class Certificates {
public:
    explicit Certificates(std::string folder);

    [[nodiscard]] std::string authority() const { return path("ca.crt"); }
    [[nodiscard]] std::string certificate(const std::string& name) const { return path(name + ".crt"); }
    [[nodiscard]] std::string key(const std::string& name) const { return path(name + ".key"); }
    // One of that common name, for a client or the server of these names.
    void add(const std::string& name, const std::string& names = "IP:127.0.0.1,DNS:localhost") const;
    // One whose subject is this.
    void addFor(const std::string& subject, const std::string& name,
                const std::string& names = "IP:127.0.0.1,DNS:localhost") const;

private:
    [[nodiscard]] std::string path(const std::string& name) const { return folder_ + "/" + name; }

    std::string folder_;
};

class EtcdServers {
public:
    struct Options {
        unsigned int members = 1;
        const Certificates* certificates = nullptr;  // clients need one too, then; it has "root"
        std::string server = "server";               // its certificate's name
        std::vector<std::string> flags = {};         // of etcd, besides its own
        // The port on which the other members find one that listens on this port; none: the port itself.
        std::function<unsigned int(unsigned int port)> peerPort = {};
    };

    // Why there are none to be had here; empty: they are.
    static std::string whyNot();

    // Starts them and waits until they answer. Throws a std::runtime_error with the end of their log where they do not.
    EtcdServers(std::string folder, Options options);
    explicit EtcdServers(std::string folder) : EtcdServers(std::move(folder), Options()) {}
    ~EtcdServers();
    EtcdServers(const EtcdServers&) = delete;
    EtcdServers& operator=(const EtcdServers&) = delete;

    // "127.0.0.1:PORT"
    [[nodiscard]] std::string endpoint(unsigned int member = 0) const;
    [[nodiscard]] pid_t process(unsigned int member = 0) const { return members_.at(member).process; }
    [[nodiscard]] std::vector<std::string> endpoints() const;

    void kill(unsigned int member = 0);
    // Stands still with its connections open, until it is told to go on.
    void pause(unsigned int member = 0);
    void resume(unsigned int member = 0);
    // What was killed, with the same flags; waits until it answers.
    void start(unsigned int member = 0);
    // All that it has kept is lost; to be killed before.
    void wipe(unsigned int member = 0);
    // Whether it answers and knows a leader, as it says itself.
    [[nodiscard]] bool healthy(unsigned int member = 0) const;
    // Which member leads; -1: none of them says so.
    [[nodiscard]] int leader() const;

    // Runs etcdctl against a member, as root where there are certificates. Whether it succeeded; says all that it said.
    bool control(const std::string& arguments, std::string* said = nullptr, unsigned int member = 0) const;
    // The same, and throws a std::runtime_error with what it said where it fails.
    void must(const std::string& arguments) const;

private:
    struct Member {
        unsigned int port = 0, peerPort = 0, toldPeerPort = 0, healthPort = 0;
        pid_t process = -1;
    };

    void choosePorts();
    [[nodiscard]] std::vector<std::string> arguments(unsigned int member) const;
    void launch(unsigned int member);
    void awaitHealth(unsigned int member);
    [[nodiscard]] bool ended(unsigned int member);
    [[nodiscard]] std::string place(unsigned int member) const;
    [[nodiscard]] std::string endOfLog(unsigned int member) const;

    std::string folder_;
    Options options_;
    std::vector<Member> members_;
};

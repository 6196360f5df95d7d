// Runs the built genreg-fleet as a child process, with an etcd of the test's own.
#pragma once

#include <memory>
#include <thread>

#include "store/Store.h"
#include "support/BuiltTool.h"
#include "support/Etcd.h"
#include "tool/Tool.h"

class FleetTool : public ToolTest {
protected:
    void SetUp() override {
        const std::string reason = EtcdServers::whyNot();
        if (!reason.empty() && std::getenv("RVN_REQUIRE_ETCD") != nullptr) {
            FAIL() << reason;
        }
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
        std::filesystem::create_directory(path("servers"));
        servers_ = std::make_unique<EtcdServers>(path("servers"));
        write("fleet.conf", "endpoints = " + servers_->endpoint() + "\ninsecure = yes\n");
        fleet::StoreAccess access;
        access.endpoints = servers_->endpoints();
        access.insecure = true;
        store_ = std::make_unique<fleet::Store>(access);
    }

    Result fleet(const std::string& line, const Words& more = {}) { return finish(started(line, more)); }
    Running started(const std::string& line, const Words& more = {}) {
        runProgram(BUILT_FLEET);
        Running running = start("--config " + settings_ + " " + line, more);
        runProgram(BUILT_TOOL);
        return running;
    }
    void expectAnswer(int status, const std::string& said, const std::string& line, const Words& more = {}) {
        const Result result = fleet(line, more);
        EXPECT_EQ(result.status, status) << line << ": " << result.err;
        EXPECT_NE((result.out + result.err).find(said), std::string::npos) << line << ": " << result.out << result.err;
    }
    // Until it is so; what takes longer is taken for hanging, on a machine that has much else to do.
    static bool becomes(const std::function<bool()>& it) {
        constexpr int TRIES = 3000;
        for (int tries = 0; tries < TRIES; ++tries) {
            if (it()) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

    std::string settings_ = "fleet.conf";
    std::unique_ptr<EtcdServers> servers_;
    std::unique_ptr<fleet::Store> store_;

private:
    const Variable memory_{"XDG_STATE_HOME", (folder() + "/memory").c_str()};
    const Variable state_{"STATE_DIRECTORY", nullptr};
};

// Tests that need an etcd: skipped where there is none, unless RVN_REQUIRE_ETCD asks for it.
#pragma once

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "store/Store.h"
#include "support/Etcd.h"
#include "support/Scratch.h"

class WithStore : public Scratch {
protected:
    using Clock = std::chrono::steady_clock;
    // What takes longer is taken for hanging, on a machine that has much else to do.
    static constexpr std::chrono::seconds LONG{60};

    void SetUp() override {
        const std::string reason = EtcdServers::whyNot();
        if (!reason.empty() && std::getenv("RVN_REQUIRE_ETCD") != nullptr) {
            FAIL() << reason;
        }
        if (!reason.empty()) {
            GTEST_SKIP() << reason;
        }
    }

    // Servers in a folder of that name.
    std::unique_ptr<EtcdServers> servers(EtcdServers::Options options = {}, const std::string& name = "servers") const {
        std::filesystem::create_directory(path(name));
        return std::make_unique<EtcdServers>(path(name), std::move(options));
    }
    static fleet::StoreAccess plain(std::vector<std::string> endpoints) {
        fleet::StoreAccess access;
        access.endpoints = std::move(endpoints);
        access.insecure = true;
        return access;
    }

    // What the work fails with.
    static std::optional<fleet::StoreFailure> failure(const std::function<void()>& work) {
        try {
            work();
        } catch (const fleet::StoreFailure& failure) {
            return failure;
        }
        return std::nullopt;
    }
    static void expectTrouble(fleet::Trouble expected, const std::function<void()>& work,
                              const std::string& words = "") {
        const std::optional<fleet::StoreFailure> found = failure(work);
        ASSERT_TRUE(found) << "nothing failed";
        EXPECT_EQ(static_cast<int>(found->trouble), static_cast<int>(expected)) << found->message;
        EXPECT_NE(found->message.find(words), std::string::npos) << found->message;
        EXPECT_FALSE(found->endpoint.empty());
    }
    // Runs it again and again until it is so.
    static bool becomes(const std::function<bool()>& it) {
        for (const auto limit = Clock::now() + LONG; Clock::now() < limit;) {
            if (it()) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }

    static std::vector<fleet::StoredValue> listed(fleet::Store& store, const std::string& prefix,
                                                  fleet::StoreHead* head = nullptr) {
        std::vector<fleet::StoredValue> all;
        const fleet::StoreHead of =
            store.list(prefix, [&](fleet::StoredValue&& one) { all.push_back(std::move(one)); });
        if (head != nullptr) {
            *head = of;
        }
        return all;
    }
};

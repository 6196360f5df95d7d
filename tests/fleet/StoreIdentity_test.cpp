#include <string>

#include "WithStore.h"

namespace {

using fleet::Store;
using fleet::StoreAccess;
using fleet::StoreHead;
using fleet::StoreWatch;
using fleet::Trouble;

class StoreIdentity : public WithStore {
protected:
    static StoreAccess secured(const EtcdServers& etcd, const Certificates& certificates, const std::string& name) {
        StoreAccess access;
        access.endpoints = etcd.endpoints();
        access.ca = certificates.authority();
        access.certificate = certificates.certificate(name);
        access.key = certificates.key(name);
        return access;
    }
    // A host may write its one key, a viewer reads all.
    static void addUsers(const EtcdServers& etcd, const std::string& secret) {
        const std::string password = secret.empty() ? " --no-password" : ":" + secret;
        for (const std::string user : {"root", "host", "viewer"}) {
            etcd.must("user add " + user + password);
        }
        etcd.must("user grant-role root root");
        etcd.must("role add host");
        etcd.must("role grant-permission host readwrite /v/host");
        etcd.must("user grant-role host host");
        etcd.must("role add viewer");
        etcd.must("role grant-permission viewer read --prefix /v/");
        etcd.must("user grant-role viewer viewer");
        etcd.must("auth enable");
    }
    static void expectRights(Store& host, Store& viewer) {
        EXPECT_TRUE(host.exchange("/v/host", 0, "x").done);
        expectTrouble(
            Trouble::DENIED, [&] { (void)host.exchange("/v/other", 0, "x"); }, "permission denied");
        expectTrouble(Trouble::DENIED, [&] { (void)host.count("/v/"); });
        const StoreHead seen = viewer.count("/v/");
        EXPECT_EQ(seen.count, 1);
        expectTrouble(Trouble::DENIED, [&] { (void)viewer.remove({"/v/host"}); });
        StoreWatch watch(viewer, "/v/", seen.revision + 1, seen);
        expectTrouble(Trouble::DENIED, [&] { StoreWatch(host, "/v/", seen.revision + 1, seen); });
    }
};

TEST_F(StoreIdentity, IsThatOfTheCertificate) {
    std::filesystem::create_directory(path("ours"));
    std::filesystem::create_directory(path("foreign"));
    const Certificates ours(path("ours"));
    const Certificates foreign(path("foreign"));
    for (const char* const name : {"host", "viewer", "nobody"}) {
        ours.add(name);
    }
    const auto etcd = servers({.certificates = &ours});
    addUsers(*etcd, "");
    Store host(secured(*etcd, ours, "host"));
    Store viewer(secured(*etcd, ours, "viewer"));
    expectRights(host, viewer);
    Store nobody(secured(*etcd, ours, "nobody"));
    expectTrouble(Trouble::DENIED, [&] { (void)nobody.count("/v/host"); });

    // Certificates are read anew, by the next connection.
    std::filesystem::copy_file(ours.certificate("viewer"), ours.certificate("host"),
                               std::filesystem::copy_options::overwrite_existing);
    std::filesystem::copy_file(ours.key("viewer"), ours.key("host"), std::filesystem::copy_options::overwrite_existing);
    expectTrouble(Trouble::DENIED, [&] { (void)host.count("/v/"); });
    host.reconnect();
    EXPECT_EQ(host.count("/v/").count, 1);

    StoreAccess access = secured(*etcd, ours, "viewer");
    access.ca = foreign.authority();
    Store misled(access);
    expectTrouble(
        Trouble::UNREACHED, [&] { (void)misled.count("/v/"); }, "connect");
    Store foreigner(secured(*etcd, foreign, "root"));
    foreigner.reconnect();
    expectTrouble(Trouble::UNREACHED, [&] { (void)foreigner.count("/v/"); });
    access = secured(*etcd, foreign, "root");
    access.ca = ours.authority();
    Store stranger(access);
    expectTrouble(Trouble::UNREACHED, [&] { (void)stranger.count("/v/"); });
    access.certificate.clear();
    access.key.clear();
    Store nameless(access);
    expectTrouble(Trouble::UNREACHED, [&] { (void)nameless.count("/v/"); });
    Store plaintext(plain(etcd->endpoints()));
    expectTrouble(Trouble::UNREACHED, [&] { (void)plaintext.count("/v/"); });
    access = secured(*etcd, ours, "viewer");
    access.key = path("nothing");
    Store keyless(access);
    expectTrouble(
        Trouble::DENIED, [&] { (void)keyless.count("/v/"); }, path("nothing"));
    access.key = write("damaged", "no key");
    Store damaged(access);
    EXPECT_TRUE(failure([&] { (void)damaged.count("/v/"); }));
}

TEST_F(StoreIdentity, AServerIsWhomItsCertificateNames) {
    std::filesystem::create_directory(path("ours"));
    const Certificates ours(path("ours"));
    ours.add("elsewhere", "IP:127.0.0.9,DNS:elsewhere");
    const auto etcd = servers({.certificates = &ours, .server = "elsewhere"});
    Store store(secured(*etcd, ours, "root"));
    expectTrouble(Trouble::UNREACHED, [&] { (void)store.count("/"); });
}

TEST_F(StoreIdentity, IsThatOfThePassword) {
    const auto etcd = servers({.flags = {"--auth-token-ttl", "1", "--bcrypt-cost", "4"}});
    addUsers(*etcd, "secret");
    StoreAccess access = plain(etcd->endpoints());
    Store nobody(access);
    expectTrouble(Trouble::DENIED, [&] { (void)nobody.count("/v/"); });
    access.user = "viewer";
    access.password = "wrong";
    Store wrong(access);
    expectTrouble(
        Trouble::DENIED, [&] { (void)wrong.count("/v/"); }, "invalid user ID or password");
    access.password = "secret";
    Store viewer(access);
    access.user = "host";
    Store host(access);
    expectRights(host, viewer);

    // A token that has run out is another one's turn, and one that a restart has forgotten.
    std::this_thread::sleep_for(std::chrono::seconds(3));
    EXPECT_EQ(viewer.count("/v/").count, 1);
    etcd->kill();
    etcd->start();
    viewer.patiently(60, [&] { EXPECT_EQ(viewer.count("/v/").count, 1); });

    // A watch would go on without its user.
    const StoreHead seen = viewer.count("/v/");
    StoreWatch watch(viewer, "/v/", seen.revision + 1, seen, {100});
    (void)watch.next(3000);
    etcd->must("--user root:secret user delete viewer");
    expectTrouble(Trouble::DENIED, [&] {
        for (const auto limit = Clock::now() + LONG; Clock::now() < limit;) {
            (void)watch.next(1000);
        }
    });
    expectTrouble(Trouble::DENIED, [&] { (void)viewer.count("/v/"); });
    // Without authentication nobody needs to be known.
    etcd->must("--user root:secret auth disable");
    EXPECT_EQ(viewer.count("/v/").count, 1);
}

}  // namespace

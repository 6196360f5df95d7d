// What a replaced file keeps of the one before it.
#include <fcntl.h>
#include <grp.h>
#include <sys/xattr.h>

#include "platform/posix/Posix.h"
#include "support/Scratch.h"
#include "support/Ways.h"

namespace {

constexpr char ACL[] = "system.posix_acl_access";
constexpr char NO_ATTRIBUTES[] = "needs a system that says what ACLs and attributes are";
constexpr uid_t USER = 12345;
constexpr gid_t GROUP = 23456;

using Bytes = std::vector<unsigned char>;

Bytes attribute(int descriptor, const char* name) {
    Bytes value(4096);
    const ssize_t length = ::fgetxattr(descriptor, name, value.data(), value.size());
    value.resize(length < 0 ? 0 : static_cast<std::size_t>(length));
    return value;
}

// user::rw- user:7:rw- group::--- mask::rw- other::---
Bytes aclWithNamedUser() {
    Bytes acl = {2, 0, 0, 0};
    const auto entry = [&acl](unsigned char tag, unsigned char bits, unsigned char id) {
        const unsigned char high = tag == 2 ? 0 : 0xff;
        acl.insert(acl.end(), {tag, 0, bits, 0, tag == 2 ? id : high, high, high, high});
    };
    entry(0x01, 6, 0);
    entry(0x02, 6, 7);
    entry(0x04, 0, 0);
    entry(0x10, 6, 0);
    entry(0x20, 0, 0);
    return acl;
}

class AttributesTest : public Scratch {
protected:
    AttributesTest() : from_(::open(path("from").c_str(), O_RDWR | O_CREAT, 0644)) {
        EXPECT_EQ(posix::createFresh(path("to").c_str(), false, &to_), 0u);
    }
    ~AttributesTest() override {
        ::close(from_);
        ::close(to_);
    }
    [[nodiscard]] static struct stat of(int descriptor) {
        struct stat status {};
        ::fstat(descriptor, &status);
        return status;
    }

    int from_ = -1;
    int to_ = -1;
};

TEST_F(AttributesTest, PermissionBitsArriveWholeWithTheirOwner) {
    for (const mode_t mode : {0600u, 0644u, 0444u, 0u, 06755u, 01666u}) {
        ASSERT_EQ(::fchmod(from_, mode), 0);
        EXPECT_EQ(posix::carryAttributes(from_, to_), 0u);
        EXPECT_EQ(of(to_).st_mode & 07777, mode);
    }
}

TEST_F(AttributesTest, OwnerAndGroupArriveAlsoWhereOnlyOneOfThemDiffers) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs root to give files away";
    }
    for (const auto& [owner, group] : {std::pair{USER, gid_t{0}}, {uid_t{0}, GROUP}}) {
        ASSERT_EQ(::fchown(from_, owner, group), 0);
        ASSERT_EQ(::fchown(to_, 0, 0), 0);
        EXPECT_EQ(posix::carryAttributes(from_, to_), 0u);
        EXPECT_EQ(of(to_).st_uid, owner);
        EXPECT_EQ(of(to_).st_gid, group);
    }
}

TEST_F(AttributesTest, AnUnprivilegedProcessCarriesItsGroupButNoForeignSetuidBit) {
    if (::getuid() != 0) {
        GTEST_SKIP() << "needs root to become somebody else";
    }
    ASSERT_EQ(::fchown(from_, 0, GROUP), 0);
    ASSERT_EQ(::fchmod(from_, 06755), 0);
    ASSERT_EQ(::fchown(to_, USER, USER), 0);
    EXPECT_EQ(inChild([&] {
                  const gid_t groups[] = {GROUP};
                  if (::setgroups(1, groups) != 0 || ::setgid(USER) != 0 || ::setuid(USER) != 0) {
                      return 2;
                  }
                  return posix::carryAttributes(from_, to_) == 0 ? 0 : 1;
              }),
              0);
    EXPECT_EQ(of(to_).st_uid, USER);
    EXPECT_EQ(of(to_).st_gid, GROUP);
    EXPECT_EQ(of(to_).st_mode & 07777, 0755u);
}

TEST_F(AttributesTest, TheAclArrivesWithItsMask) {
    if (!CARRIES_ATTRIBUTES) {
        GTEST_SKIP() << NO_ATTRIBUTES;
    }
    const Bytes acl = aclWithNamedUser();
    if (::fsetxattr(from_, ACL, acl.data(), acl.size(), 0) != 0) {
        GTEST_SKIP() << "the file system has no ACLs";
    }
    ASSERT_EQ(of(from_).st_mode & 07777, 0660u);
    EXPECT_EQ(posix::carryAttributes(from_, to_), 0u);
    EXPECT_EQ(attribute(to_, ACL), acl);
    EXPECT_EQ(of(to_).st_mode & 07777, 0660u);

    // Where there can be none the mask must not become the rights of the group.
    int withoutAcls[2];
    ASSERT_EQ(::pipe(withoutAcls), 0);
    EXPECT_EQ(posix::carryAttributes(from_, withoutAcls[1]), 0u);
    EXPECT_EQ(of(withoutAcls[1]).st_mode & 07777, 0600u);
    ::close(withoutAcls[0]);
    ::close(withoutAcls[1]);
}

TEST_F(AttributesTest, AnAclOfTheDirectoryDoesNotSlipIn) {
    if (!CARRIES_ATTRIBUTES) {
        GTEST_SKIP() << NO_ATTRIBUTES;
    }
    const Bytes acl = aclWithNamedUser();
    if (::setxattr(path("").c_str(), "system.posix_acl_default", acl.data(), acl.size(), 0) != 0) {
        GTEST_SKIP() << "the file system has no ACLs";
    }
    int inheriting = -1;
    ASSERT_EQ(posix::createFresh(path("inheriting").c_str(), false, &inheriting), 0u);
    ASSERT_FALSE(attribute(inheriting, ACL).empty());
    EXPECT_EQ(posix::carryAttributes(from_, inheriting), 0u);
    EXPECT_TRUE(attribute(inheriting, ACL).empty());
    EXPECT_EQ(of(inheriting).st_mode & 07777, of(from_).st_mode & 07777);
    ::close(inheriting);
}

TEST_F(AttributesTest, WhatUsersTiedToTheFileArrives) {
    if (!CARRIES_ATTRIBUTES) {
        GTEST_SKIP() << NO_ATTRIBUTES;
    }
    if (::fsetxattr(from_, "user.origin", "here", 4, 0) != 0) {
        GTEST_SKIP() << "the file system has no attributes of users";
    }
    EXPECT_EQ(posix::carryAttributes(from_, to_), 0u);
    EXPECT_EQ(attribute(to_, "user.origin"), (Bytes{'h', 'e', 'r', 'e'}));
}

}  // namespace

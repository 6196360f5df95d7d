// Streams in a forked child: what it inherits never reaches the parent's files.
#include <fcntl.h>

#include <cstdlib>

#include "platform/posix/Posix.h"
#include "support/Scratch.h"

namespace {

using StreamsTest = Scratch;

// Ends the way a program does whose exec has failed: with all that exit() flushes and closes.
void forkAndExit() {
    const pid_t child = ::fork();
    if (child == 0) {
        std::exit(7);
    }
    EXPECT_EQ(waitFor(child), 7);
}

TEST_F(StreamsTest, AnExitingChildWritesNothingThatTheParentHoldsBack) {
    int descriptor = -1;
    ASSERT_EQ(posix::createFresh(path("copy").c_str(), true, &descriptor), 0U);
    std::FILE* const stream = posix::openStream(descriptor, "a");
    ASSERT_NE(stream, nullptr);
    EXPECT_GE(std::fputs("once\n", stream), 0);
    forkAndExit();
    EXPECT_EQ(read("copy"), "");
    EXPECT_TRUE(posix::flushStream(stream));
    forkAndExit();
    EXPECT_TRUE(posix::closeStream(stream));
    EXPECT_EQ(read("copy"), "once\n");
}

TEST_F(StreamsTest, AnExitingChildLeavesTheParentsPlaceAlone) {
    std::string text;
    for (int i = 0; i < 4000; ++i) {
        text += std::to_string(i) + "\n";
    }
    int descriptor = -1;
    ASSERT_EQ(posix::openToRead(write("file", text).c_str(), &descriptor), 0U);
    std::FILE* const stream = posix::openStream(descriptor, "r");
    ASSERT_NE(stream, nullptr);
    std::string seen;
    for (int c = 0; (c = std::fgetc(stream)) != EOF;) {
        if (seen.size() == 100) {
            forkAndExit();
        }
        seen += static_cast<char>(c);
    }
    EXPECT_EQ(seen, text);
    EXPECT_TRUE(posix::closeStream(stream));
}

TEST_F(StreamsTest, AClosedStreamsNumberIsNobodysInTheChild) {
    int descriptor = -1;
    ASSERT_EQ(posix::openToRead(write("file", "x").c_str(), &descriptor), 0U);
    EXPECT_TRUE(posix::closeStream(posix::openStream(descriptor, "r")));
    // The number now means another file, which the child keeps.
    const int other = ::open(write("other", "y").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(other, descriptor);
    EXPECT_EQ(inChild([&] {
                  char byte = 0;
                  return ::read(other, &byte, 1) == 1 && byte == 'y' ? 0 : 1;
              }),
              0);
    ::close(other);
}

}  // namespace

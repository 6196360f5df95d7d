// Streams in a forked child: what it inherits never reaches the parent's files.
#include <fcntl.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <random>
#include <thread>

#include "platform/System.h"
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
    const std::string other = write("other", "x");
    for (int earlier = 0; earlier < 300; ++earlier) {  // more than are guarded at a time
        ASSERT_EQ(posix::openToRead(other.c_str(), &descriptor), 0U);
        ASSERT_TRUE(posix::closeStream(posix::openStream(descriptor, "r")));
    }
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

// Seeking, reading and writing at random, by stdio and past it, against a text in memory.
TEST_F(StreamsTest, WhatIsWrittenStandsWhereTheStreamStood) {
    std::mt19937 dice(11);
    const auto below = [&](std::size_t bound) { return static_cast<std::size_t>(dice()) % bound; };
    for (int round = 0; round < 300; ++round) {
        int descriptor = -1;
        ASSERT_EQ(posix::createFresh(path(std::to_string(round).c_str()).c_str(), false, &descriptor), 0U);
        std::FILE* const stream = posix::openStream(descriptor, "w+b");
        char buffer[1024];
        (void)std::setvbuf(stream, buffer, _IOFBF, round % 2 == 0 ? 64 : sizeof buffer);
        std::string expected;
        std::size_t at = 0;
        std::string told;
        for (int step = 0; step < 40; ++step) {
            const std::size_t action = below(5);
            told += std::to_string(action) + " at " + std::to_string(at) + "; ";
            const std::string piece(1 + below(step % 4 == 0 ? 100 : 20), static_cast<char>('a' + step % 26));
            if (action <= 1) {
                const bool past = action == 1;
                ASSERT_TRUE(past ? posix::writeUnlocked(stream, piece.data(), piece.size())
                                 : std::fwrite(piece.data(), 1, piece.size(), stream) == piece.size());
                expected.resize(std::max(expected.size(), at + piece.size()));
                expected.replace(at, piece.size(), piece);
                at += piece.size();
            } else if (action == 2) {
                ASSERT_TRUE(posix::flushStream(stream));
            } else {
                // A change between reading and writing wants a seek.
                at = below(expected.size() + 1);
                ASSERT_EQ(std::fseek(stream, static_cast<long>(at), SEEK_SET), 0);
                std::string read(action == 3 ? 0 : below(expected.size() - at + 1), '\0');
                ASSERT_EQ(std::fread(read.data(), 1, read.size(), stream), read.size());
                ASSERT_EQ(read, expected.substr(at, read.size())) << told;
                at += read.size();
                ASSERT_EQ(std::fseek(stream, 0, SEEK_CUR), 0);
            }
            ASSERT_EQ(std::ftell(stream), static_cast<long>(at)) << told;
        }
        ASSERT_TRUE(posix::flushStream(stream) && posix::closeStream(stream));
        ASSERT_EQ(this->read(std::to_string(round).c_str()), expected) << told;
    }
}

// An update that is told of a failure in the middle asks the stream again at its end.
TEST_F(StreamsTest, AFailedWriteStaysKnownToTheStream) {
    const std::string half(160, 'x');
    for (const std::string& last : {half, half + half}) {  // pushes out what is held back; goes past the buffer
        int descriptor = -1;
        ASSERT_EQ(posix::openToAppend("/dev/full", &descriptor), 0U);
        std::FILE* const stream = posix::openStream(descriptor, "a");
        char buffer[256];
        ASSERT_EQ(std::setvbuf(stream, buffer, _IOFBF, sizeof buffer), 0);
        EXPECT_TRUE(last.size() > half.size() || posix::writeUnlocked(stream, half.data(), half.size()));
        EXPECT_FALSE(posix::writeUnlocked(stream, last.data(), last.size()));
        EXPECT_NE(std::ferror(stream), 0);
        (void)posix::closeStream(stream);
    }
}

TEST_F(StreamsTest, AnErrorOfTheStreamsOwnerIsStillOneWhenItIsPlaced) {
    int descriptor = -1;
    ASSERT_EQ(posix::openToRead(write("file", "0123456789").c_str(), &descriptor), 0U);
    std::FILE* const stream = posix::openStream(descriptor, "r");
    EXPECT_EQ(std::fgetc(stream), '0');
    EXPECT_EQ(std::fputc('x', stream), EOF);
    for (const unsigned long place : {4UL, 20UL}) {  // the second is reached by no reading
        EXPECT_TRUE(posix::placeStream(stream, place));
        EXPECT_NE(std::ferror(stream), 0) << place;
        EXPECT_EQ(std::ftell(stream), static_cast<long>(place));
    }
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

// A child that lives on with all that it inherits, as a daemon's does, until the end of the scope.
class Bystander {
public:
    Bystander() {
        int ends[2];
        char there = 0;
        EXPECT_EQ(::pipe(ends), 0);
        child_ = ::fork();
        if (child_ == 0) {
            (void)!::write(ends[1], &there, 1);
            for (;;) {
                ::pause();
            }
        }
        EXPECT_EQ(::read(ends[0], &there, 1), 1);  // what a fork does in the child has been done
        ::close(ends[0]);
        ::close(ends[1]);
    }
    ~Bystander() {
        ::kill(child_, SIGKILL);
        (void)waitFor(child_);
    }
    Bystander(const Bystander&) = delete;
    Bystander& operator=(const Bystander&) = delete;

private:
    pid_t child_ = -1;
};

// The reader ends without a word, as one that is killed: nothing but what a child holds locks the file then.
TEST_F(StreamsTest, AForkBesideAThreadThatOpensGivesTheChildNoLock) {
    const std::string file = write("file", "x");
    const int writer = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
    const auto take = [&](bool taken) {
        const auto lock = taken ? platform::FileLock::Exclusive : platform::FileLock::None;
        return platform::lockWholeFile(writer, lock, false) == 0;
    };
    for (const bool opened : {false, true}) {  // when the fork comes; before, the reader waits for the lock
        posix::ReadFile looked;
        bool open = false;
        const auto openIt = [&] { open = posix::openLocked(file.c_str(), &looked); };
        ASSERT_TRUE(take(!opened));
        const long before = openDescriptors();
        std::thread reader(openIt);
        if (opened) {
            reader.join();
        }
        while (openDescriptors() == before) {
            std::this_thread::yield();
        }
        const Bystander bystander;
        ASSERT_TRUE(take(false));
        if (!opened) {
            reader.join();
        }
        EXPECT_EQ(open, opened);
        if (open) {
            ::close(looked.descriptor);
        }
        EXPECT_TRUE(take(true)) << "opened " << opened;
        ASSERT_TRUE(take(false));
    }
    ::close(writer);
}

}  // namespace

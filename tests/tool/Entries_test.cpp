// What holds for entries of every schema.
#include <chrono>
#include <thread>

#include "Tool.h"

namespace {

class Entries : public ToolTest {
protected:
    template <typename Holds>
    static void until(const Holds& holds) {
        while (!holds()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    void run(const std::string& line) { ASSERT_EQ(status(line), 0) << line; }
};

// The holder of the lock gives the entry a comment while others, who have read it, wait for the lock.
TEST_F(Entries, WhatSomebodyElseChangedMeanwhileIsMergedOrAConflict) {
    const struct {
        std::string group, before, after, value;
    } cases[] = {{"varval", "a 1", "a 2", "1"},
                 {"services", "a 1/tcp", "a 2/tcp", "1/tcp"},
                 {"inittab", "a 1 off x", "a 2 off x", "1:off:x"},
                 {"binvar", "a 1", "a 2", "1"}};
    std::vector<Running> holders;
    std::vector<Running> setters;
    std::vector<Running> late;
    for (const auto& c : cases) {
        const std::string& f = c.group;
        run(c.group + " add " + f + " " + c.before);
        write(f + ".theirs", read(f));
        run(c.group + " set " + f + ".theirs " + c.before + " --comment theirs");
        write(f + ".both", read(f + ".theirs"));
        run(c.group + " set " + f + ".both " + c.after);
        holders.push_back(
            start("lock run " + f + " -- sh -c",
                  {"touch " + f + ".held; while [ ! -e go ]; do sleep 0.02; done; mv " + f + ".theirs " + f}));
        until([&] { return exists(f + ".held"); });
        setters.push_back(start(c.group + " set " + f + " " + c.after + " --wait 60"));
        for (const std::string& words :
             {"set " + f + " " + c.before + " --comment mine", "set " + f + " " + c.after + " --if-value " + c.value,
              "delete " + f + " a", "delete " + f + " a --if-value " + c.value}) {
            late.push_back(start(c.group + " " + words + " --wait 60"));
        }
    }
    for (const auto& running : {setters, late}) {
        for (const Running& waiting : running) {
            until([&] { return !read(waiting.err).empty(); });  // it has read, and says whom it waits for
        }
    }
    write("go", "");
    for (const Running& holder : holders) {
        EXPECT_EQ(finish(holder).status, 0);
    }
    for (const Running& setter : setters) {
        const Result result = finish(setter);
        EXPECT_EQ(result.status, 0) << result.err;
    }
    for (const Running& running : late) {
        const Result result = finish(running);
        EXPECT_EQ(result.status, 5) << result.err;
        EXPECT_NE(result.err.find("changed by somebody else meanwhile"), std::string::npos) << result.err;
    }
    for (const auto& c : cases) {
        EXPECT_EQ(read(c.group), read(c.group + ".both")) << c.group;
    }
}

}  // namespace

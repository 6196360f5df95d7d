#include <fcntl.h>
#include <poll.h>

#include <thread>

#include "Tool.h"

namespace {

class Edit : public ToolTest {
protected:
    Edit() : temporary_("TMPDIR", (folder() + "/tmp").c_str()), none_("VISUAL", nullptr) {}
    void SetUp() override {
        std::filesystem::create_directory(path("tmp"));
        write("f", "# settings\na = 1   # first\nb = 2\n");
    }

    // With an editor that is a script of the shell, the copy being $1.
    Result edit(const std::string& script, const std::string& options, const Surroundings& around = {}) {
        return genreg("edit " + options, {}, withEditor(script, around));
    }
    // Which no later call finds another in the place of.
    Surroundings withEditor(const std::string& script, Surroundings around = {}) {
        write("editor", "set -e\n" + script + "\n");
        ::setenv("EDITOR", ("sh " + path("editor")).c_str(), 1);
        return around;
    }
    // The one edit that was kept; empty where there is none.
    [[nodiscard]] std::string kept() const {
        std::string found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path("tmp"))) {
            if (entry.is_regular_file()) {
                EXPECT_EQ(found, "");
                found = entry.path();
            }
        }
        return found;
    }
    void expectKept(const Result& result, const std::string& contents) {
        EXPECT_EQ(read(kept()), contents);
        EXPECT_NE(result.err.find("kept in " + kept()), std::string::npos) << result.err;
        std::filesystem::remove_all(path("tmp"));
        std::filesystem::create_directory(path("tmp"));
    }

private:
    Variable temporary_;
    Variable none_;
};

TEST_F(Edit, WhatTheEditorLeavesTakesTheFilesPlace) {
    ::chmod(path("f").c_str(), 0640);
    link("f", "link");
    const Result done =
        edit("stat -c '%a %n' \"$1\" \"$(dirname \"$1\")\" > seen; sed -i 's/1 /10 /; $ad = 4' \"$1\"", "link -y");
    EXPECT_EQ(done.status, 0) << done.err;
    EXPECT_EQ(read("f"), "# settings\na = 10   # first\nb = 2\nd = 4\n");
    EXPECT_EQ(
        done.out,
        "--- link\n+++ link\n@@ -1,3 +1,4 @@\n # settings\n-a = 1   # first\n+a = 10   # first\n b = 2\n+d = 4\n");
    EXPECT_TRUE(std::filesystem::is_symlink(path("link")));
    struct stat status = {};
    ASSERT_EQ(::stat(path("f").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    EXPECT_TRUE(read("seen").starts_with("600 ") && read("seen").find("/link\n700 ") != std::string::npos)
        << read("seen");
    EXPECT_EQ(kept(), "");
    EXPECT_TRUE(std::filesystem::is_empty(path("tmp")));

    const Result same = edit("touch \"$1\"", "f -y");
    EXPECT_EQ(same.status, 0);
    EXPECT_NE(same.err.find("nothing to change"), std::string::npos) << same.err;
    const Result rehearsed = edit("echo e = 5 >> \"$1\"", "f -n");
    EXPECT_EQ(rehearsed.status, 0);
    EXPECT_NE(rehearsed.out.find("+e = 5\n"), std::string::npos) << rehearsed.out;
    EXPECT_EQ(read("f"), "# settings\na = 10   # first\nb = 2\nd = 4\n");
    const Variable better("VISUAL", "false");
    EXPECT_EQ(edit("echo e = 5 >> \"$1\"", "f -y").status, 1);
    EXPECT_TRUE(std::filesystem::is_empty(path("tmp")));
}

TEST_F(Edit, WhatCannotBeCommittedIsKept) {
    const std::string before = read("f");
    const Result conflict = edit("echo d = 4 >> \"$1\"; echo c = 3 >> f", "f -y");
    EXPECT_EQ(conflict.status, 5) << conflict.err;
    EXPECT_EQ(read("f"), before + "c = 3\n");
    expectKept(conflict, before + "d = 4\n");

    write("f", before);
    const Result refused = edit("printf 'no pair\\nd = 4\\n' >> \"$1\"", "f -y");
    EXPECT_EQ(refused.status, 6);
    EXPECT_NE(refused.err.find("line 4 of the edit"), std::string::npos) << refused.err;
    expectKept(refused, before + "no pair\nd = 4\n");
    // What stood there before may stay, and move.
    write("f", "odd\n" + before);
    EXPECT_EQ(edit("sed -i 1d \"$1\"; printf 'd = 4\\nodd\\n' >> \"$1\"", "f -y").status, 0);
    EXPECT_EQ(edit("echo odd >> \"$1\"", "f -y").status, 6) << "but not twice";
    remove("tmp");
    std::filesystem::create_directory(path("tmp"));

    write("f", before);
    const Result hidden = edit("printf 'd = \\0\\n' >> \"$1\"", "f -y");
    EXPECT_EQ(hidden.status, 6);
    expectKept(hidden, before + std::string("d = \0\n", 6));
    const Result failed = edit("echo d = 4 >> \"$1\"; kill -9 $$", "f -y");
    EXPECT_EQ(failed.status, 1);
    EXPECT_NE(failed.err.find("signal 9"), std::string::npos) << failed.err;
    expectKept(failed, before + "d = 4\n");
    EXPECT_EQ(edit("rm \"$1\"", "f -y").status, 1);
    EXPECT_EQ(edit("exit 3", "f -y").status, 1);
    EXPECT_TRUE(std::filesystem::is_empty(path("tmp")));

    const Running holder = start("lock run f -- sh -c", {"touch held; exec sleep 30"});
    while (!exists("held")) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const Result locked = edit("echo d = 4 >> \"$1\"", "f -y --wait 0");
    EXPECT_EQ(locked.status, 4);
    expectKept(locked, before + "d = 4\n");
    ::kill(holder.pid, SIGTERM);
    (void)finish(holder);
    EXPECT_EQ(read("f"), before);
    EXPECT_EQ(names(), ".f.lock editor f held tmp");
}

TEST_F(Edit, OnlyLinesOfAKnownFormAreEdited) {
    (void)withEditor("touch edited");
    expectFailure(3, "no such file", "edit none -y");
    expectFailure(2, "nobody to ask", "edit f");
    write("plain", "# nothing but a comment\n");
    expectFailure(2, "--form", "edit plain -y");
    EXPECT_EQ(status("binvar add b x 3"), 0);
    for (const char* file : {"b -y", "b -y --form varval"}) {
        expectFailure(2, "genreg export b", std::string("edit ") + file);
    }
    EXPECT_FALSE(exists("edited"));
    EXPECT_EQ(edit("echo 'x y' >> \"$1\"", "plain -y --form varval").status, 6);
    EXPECT_EQ(edit("echo 'http 80/tcp www' >> \"$1\"", "plain -y --form services").status, 0);
    EXPECT_EQ(out("services get plain http"), "80/tcp\n");
    const Result told = edit("echo 'ssh 22/tcp' >> \"$1\"", "plain -y --json");
    EXPECT_EQ(objects(told.out).at(0)["after"]["text"], "ssh 22/tcp") << told.out;
    const Result same = edit("true", "plain -y --json");
    EXPECT_EQ(objects(same.out).at(0)["action"], "none") << same.out;
}

// A terminal that the tool is answered from.
class EditAtTerminal : public Edit {
protected:
    void SetUp() override {
        Edit::SetUp();
        master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        ASSERT_EQ(::grantpt(master_) | ::unlockpt(master_), 0);
        name_ = ::ptsname(master_);
        held_ = ::open(name_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    void TearDown() override {
        ::close(held_);
        ::close(master_);
    }

    Running begin(const std::string& script) {
        Surroundings around;
        around.terminal = name_;
        return start("edit f", {}, withEditor(script, around));
    }
    void answer(const std::string& text) const {
        ASSERT_EQ(::write(master_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    // What the terminal shows up to the text.
    std::string shown(const std::string& upTo) const {
        std::string text;
        pollfd output{master_, POLLIN, 0};
        while (text.find(upTo) == std::string::npos && ::poll(&output, 1, 10000) == 1) {
            char bytes[4096];
            const ssize_t got = ::read(master_, bytes, sizeof bytes);
            text.append(bytes, got > 0 ? static_cast<std::size_t>(got) : 0);
        }
        EXPECT_NE(text.find(upTo), std::string::npos) << text;
        return text;
    }

private:
    int master_ = -1;
    int held_ = -1;
    std::string name_;
};

TEST_F(EditAtTerminal, TheUserDecidesWhatBecomesOfAnEdit) {
    const std::string before = read("f");
    const std::string more = "echo d = 4 >> \"$1\"";
    const auto decided = [&](const std::string& reply) {
        const Running running = begin(more);
        const std::string question = shown("aside? ");
        EXPECT_NE(question.find("[y]es"), std::string::npos) << question;
        answer(reply);
        Result result = finish(running);
        EXPECT_NE(result.out.find("+d = 4\n"), std::string::npos) << "shown first";
        result.err = shown(reply == "y\n" ? "y" : "nothing was changed");
        return result;
    };
    EXPECT_EQ(decided("d\n").status, 1);
    EXPECT_EQ(kept(), "");
    for (const char* reply : {"k\n", "\n", "\x04"}) {
        const Result aside = decided(reply);
        EXPECT_EQ(aside.status, 1);
        EXPECT_EQ(read(kept()), before + "d = 4\n");
        remove(kept());
    }
    EXPECT_EQ(read("f"), before);
    EXPECT_EQ(decided("y\n").status, 0);
    EXPECT_EQ(read("f"), before + "d = 4\n");
    EXPECT_EQ(kept(), "");

    const Running stopped = begin(more);
    (void)shown("aside? ");
    ::kill(stopped.pid, SIGINT);
    EXPECT_EQ(finish(stopped).status, 1);
    EXPECT_EQ(read(kept()), before + "d = 4\nd = 4\n");
}

TEST_F(EditAtTerminal, WhatTheFormRefusesIsEditedAgain) {
    const Running running =
        begin("[ -e second ] && sed -i 's/^no pair/c = 3/' \"$1\" || echo no pair >> \"$1\"; touch second");
    const std::string question = shown("aside? ");
    EXPECT_NE(question.find("line 4 of the edit"), std::string::npos) << question;
    EXPECT_EQ(question.find("[y]es"), std::string::npos) << question;
    answer("e\n");
    (void)shown("[y]es");
    answer("y\n");
    EXPECT_EQ(finish(running).status, 0);
    EXPECT_EQ(out("varval get f c"), "3\n");
}

}  // namespace

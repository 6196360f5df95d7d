#include "Tool.h"

namespace {

using Command = Scratch;

TEST_F(Command, GlobalOptionsStandBeforeOrBehindTheCommand) {
    write("f", "a = 1\n");
    EXPECT_EQ(genreg({"--json", "varval", "get", "f", "a"}).out, genreg({"varval", "get", "f", "a", "--json"}).out);
    EXPECT_EQ(genreg({"varval", "--json", "get", "--wait", "0", "f", "a"}).status, 0);
    // Words that are commands elsewhere, and values that look like options.
    EXPECT_EQ(genreg({"varval", "add", "f", "status", "lock"}).status, 0);
    EXPECT_EQ(genreg({"varval", "set", "f", "status", "--", "--json"}).status, 0);
    EXPECT_EQ(read("f"), "a = 1\nstatus = --json\n");
}

TEST_F(Command, AMistypedWordIsAnsweredWithTheNearest) {
    write("f", "a = 1\n");
    const struct {
        std::vector<std::string> arguments;
        std::string hint;
    } cases[] = {
        {{"varvall", "get", "f", "a"}, "genreg varval"},
        {{"varval", "gte", "f", "a"}, "genreg varval get"},
        {{"varval", "get", "f", "a", "--jsn"}, "--json"},
        {{"varval", "get", "f", "a", "--tpye=int"}, "--type"},
        {{"varval", "get", "f", "a", "b"}, "genreg varval get --help"},
        {{"varval", "get", "f"}, "genreg varval get --help"},
        {{"varval"}, "genreg varval --help"},
        {{}, "genreg --help"},
        {{"varval", "get", "f", "a", "--wait", "-1"}, "genreg varval get --help"},
        {{"varval", "set", "f", "a", "--zzzz"}, "stands behind \"--\""},
        {{"explain", "REG_NOTFOUND"}, "genreg explain REG_NOT_FOUND"},
        {{"status", "f", "--registry", "f"}, ""},
    };
    for (const auto& c : cases) {
        const Result result = genreg(c.arguments);
        EXPECT_EQ(result.status, 2) << result.err;
        EXPECT_EQ(result.out, "");
        EXPECT_NE(result.err.find(c.hint), std::string::npos) << result.err;
    }
}

TEST_F(Command, AnOptionWithoutMeaningIsRefusedAndNothingDone) {
    write("f", "a = 1\n");
    EXPECT_EQ(genreg({"lock", "run", "-n", "f", "--", "touch", "ran"}).status, 2);
    EXPECT_EQ(genreg({"varval", "add", "f", "b", "1", "--if-value", "2"}).status, 2);
    EXPECT_EQ(genreg({"varval", "get", "a", "--registry", "f"}).status, 2);
    EXPECT_EQ(genreg({"diff", "f", "f", "--all"}).status, 2);
    EXPECT_EQ(names(), std::vector<std::string>{"f"});
}

TEST_F(Command, HelpIsNoFailureAndNamesTheCommands) {
    EXPECT_NE(genreg({"--help"}).out.find("varval"), std::string::npos);
    const Result help = genreg({"varval", "set", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("genreg varval set [OPTIONS] FILE NAME VALUE"), std::string::npos) << help.out;
}

TEST_F(Command, ErrorsSayWhatWhereWhyAndWhatNext) {
    const Result text = genreg({"varval", "set", "absent", "a", "1"});
    EXPECT_EQ(text.err,
              "genreg: absent: cannot set a: there is no such file\n"
              "  try: check the path; an add creates a missing file   [0x90000513]\n");
    const Result json = genreg({"varval", "set", "absent", "a", "1", "--json"});
    EXPECT_EQ(json.status, 3);
    EXPECT_EQ(json.out, "");
    EXPECT_EQ(json.err,
              "{\"schema\":1,\"kind\":\"missing\",\"exit\":3,\"code\":\"0x90000513\",\"operation\":\"varval set\","
              "\"path\":\"absent\",\"message\":\"absent: cannot set a: there is no such file\",\"hint\":\"check the "
              "path; an add creates a missing file\"}\n");
    EXPECT_EQ(objects(genreg({"--json", "varvall"}).err).at(0)["kind"], "usage");
}

TEST_F(Command, WhatIsNoReadableFileIsToldApart) {
    write("f", "a = 1\n");
    std::filesystem::create_directory(at("d"));
    std::filesystem::create_symlink("loop", at("loop"));
    std::filesystem::create_symlink("nowhere", at("dangling"));
    const struct {
        std::string path, words;
    } cases[] = {{"absent", "no such file"},       {"no/dir/f", "no such file"},        {"d", "is a directory"},
                 {"/dev/zero", "no regular file"}, {"loop", "symbolic links"},          {"dangling", "no such file"},
                 {"f/x", "no such file"},          {std::string(1100, 'p'), "too long"}};
    for (const auto& c : cases) {
        for (const std::vector<std::string>& arguments :
             std::vector<std::vector<std::string>>{{"varval", "get", c.path, "a"},
                                                   {"varval", "set", c.path, "a", "2"},
                                                   {"varval", "list", c.path},
                                                   {"status", c.path},
                                                   {"diff", "f", c.path},
                                                   {"lock", "run", c.path, "--", "true"}}) {
            const Result result = genreg(arguments);
            EXPECT_EQ(result.status, 3) << arguments[0] << result.err;
            EXPECT_NE(result.err.find(c.words), std::string::npos) << arguments[0] << result.err;
        }
    }
    EXPECT_EQ(names(), (std::vector<std::string>{"d", "dangling", "f", "loop"}));
}

TEST_F(Command, MissingPermissionsAreNamedAndNothingChanges) {
    write("f", "a = 1\n");
    write("secret", "a = 1\n");
    std::filesystem::permissions(at("secret"), std::filesystem::perms(0));
    std::filesystem::permissions(at(""), std::filesystem::perms(0555));
    Surroundings user;
    user.unprivileged = true;
    const Result reading = genreg({"varval", "get", "f", "a"}, user);
    if (reading.status == 99) {
        std::filesystem::permissions(at(""), std::filesystem::perms(0755));
        GTEST_SKIP() << "other users cannot run the tool where it was built";
    }
    EXPECT_EQ(reading.out, "1\n");
    const Result writing = genreg({"varval", "set", "f", "a", "2"}, user);
    EXPECT_EQ(writing.status, 3);
    EXPECT_NE(writing.err.find("permission denied"), std::string::npos) << writing.err;
    EXPECT_EQ(genreg({"varval", "get", "secret", "a"}, user).status, 3);
    // The lock file is there for everyone, the folder is not.
    write(".f.lock", "");
    std::filesystem::permissions(at(".f.lock"), std::filesystem::perms(0666));
    const Result committing = genreg({"varval", "set", "f", "a", "2"}, user);
    EXPECT_EQ(committing.status, 8);
    EXPECT_NE(committing.err.find("not replaced"), std::string::npos) << committing.err;
    std::filesystem::permissions(at(""), std::filesystem::perms(0755));
    EXPECT_EQ(read("f"), "a = 1\n");
}

TEST_F(Command, OutputThatCannotBeWrittenIsAFailure) {
    write("f", "a = 1\n");
    Surroundings full;
    full.standardOutput = "/dev/full";
    const Result get = genreg({"varval", "get", "f", "a"}, full);
    EXPECT_EQ(get.status, 8);
    EXPECT_NE(get.err.find("no space left"), std::string::npos);
    EXPECT_EQ(genreg({"--help"}, full).status, 8);

    std::string many;
    for (int i = 0; i < 20000; ++i) {
        many += "v" + std::to_string(i) + " = 1\n";
    }
    write("many", many);
    const std::string pipeline = "{ '" RVN_TOOL "' varval list '" + at("many") + "' 2>'" + at("err") + "'; echo $? >'" +
                                 at("status") + "'; } | head -n 1 >/dev/null";
    EXPECT_EQ(std::system(pipeline.c_str()), 0);
    EXPECT_EQ(read("status"), "141\n");
    EXPECT_EQ(read("err"), "") << "a reader that has seen enough is no error to talk about";
}

TEST_F(Command, AFileSizeLimitLeavesTheOldFile) {
    const std::string before = std::string(3000, '#') + "\na = 1\n";
    write("f", before);
    Surroundings limited;
    limited.fileSizeLimit = 1024;
    const Result result = genreg({"varval", "set", "f", "a", "2"}, limited);
    EXPECT_EQ(result.status, 8) << result.err;
    EXPECT_NE(result.err.find("not replaced: file too large"), std::string::npos) << result.err;
    EXPECT_EQ(read("f"), before);
    EXPECT_EQ(genreg({"varval", "set", "f", "a", "2"}).status, 0);
}

TEST_F(Command, ColoursAndControlBytesStayWhereTheyBelong) {
    write("f", "a = 1\nb = \xc2\x9b\n");
    EXPECT_EQ(genreg({"varval", "set", "f", "a", "2", "-n"}).out.find('\x1b'), std::string::npos);
    EXPECT_NE(genreg({"varval", "set", "f", "a", "2", "-n", "--color", "always"}).out.find("\x1b[32m+a = 2\x1b[0m"),
              std::string::npos);
    EXPECT_NE(genreg({"varval", "list", "f"}).out.find("\\xc2\\x9b"), std::string::npos);
    EXPECT_EQ(genreg({"varval", "get", "f", "b"}).out, "\xc2\x9b\n") << "programs get the bytes";
}

}  // namespace

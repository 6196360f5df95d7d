// What scripts and the management of configurations rely on: to ask for the same as often as one likes, to be told
// whether anything would change, and to keep a secret out of the command line.
#include <cstdlib>

#include "Tool.h"

namespace {

using Habits = ToolTest;

TEST_F(Habits, ASetAddsWhatIsMissingWhenItIsAskedTo) {
    write("v", "a=1\n");
    EXPECT_EQ(status("varval set v b 2"), 1);
    EXPECT_EQ(object("varval set v b 2 --add")["action"], "add");
    EXPECT_EQ(object("varval set v b 2 --add")["changed"], false);
    EXPECT_EQ(object("varval set v b 3 --add")["action"], "change");
    EXPECT_EQ(read("v"), "a=1\nb=3\n") << "it looks like the line before it";
    EXPECT_EQ(status("varval set v c 1 --add --if-value 0"), 1) << "what must have a value must be there";
    EXPECT_EQ(status("varval set v c --comment x --add"), 1) << "there is no value to add";
    EXPECT_EQ(status("varval set new v 1 --add"), 0);
    EXPECT_EQ(status("varval set no/v v 1 --add"), 3);
    EXPECT_EQ(status("varval set no/v v 1 --add --parents"), 0);
    EXPECT_EQ(status("varval set v v 1 --parents"), 2);
    // A service of another protocol is another one.
    write("s", "http 80/tcp www # W\n");
    EXPECT_EQ(status("services set s http 80/udp --add"), 0);
    EXPECT_EQ(status("services set s http 81/tcp --add"), 0);
    EXPECT_EQ(read("s").substr(0, 21), "http 81/tcp www # W\nh");
    EXPECT_EQ(status("inittab set i a 2 once x --add"), 0);
    EXPECT_EQ(status("binvar set b a 2 --add"), 0);
    EXPECT_EQ(out("binvar get b a") + read("i"), "2\na:2:once:x\n");
    write("v", "a=1\na=2\n");
    EXPECT_EQ(status("varval set v a 3 --add"), 5);
}

TEST_F(Habits, WhatIsNotThereNeedNotBeDeleted) {
    write("v", "a = 1\na = 2\n");
    EXPECT_EQ(status("varval delete v b"), 1);
    EXPECT_EQ(object("varval delete v b --if-present")["changed"], false);
    EXPECT_EQ(status("varval delete v b --if-present --all"), 0) << "there is nothing to ask about";
    EXPECT_EQ(status("varval delete v a --if-present"), 5);
    EXPECT_EQ(status("varval delete v a --if-present --all"), 2) << "there is";
    EXPECT_EQ(status("varval delete v a --if-present --all --if-value 7 -y"), 5);
    EXPECT_EQ(status("varval delete absent a --if-present"), 3) << "a path that is mistyped";
    EXPECT_EQ(status("varval delete v a --if-present --all -y"), 0);
    EXPECT_EQ(read("v"), "");
    EXPECT_EQ(status("service set RVN 9.7"), 0);
    EXPECT_EQ(status("service remove RVN 9.8"), 1);
    EXPECT_EQ(object("service remove RVN 9.8 --if-present")["changed"], false);
    EXPECT_EQ(status("service remove RVX --all --if-present"), 0);
    EXPECT_EQ(object("service remove RVN 9.7 --if-present")["changed"], true);
}

TEST_F(Habits, ACheckTellsWhetherSomethingWouldChangeAndChangesNothing) {
    write("v", "a = 1\n");
    EXPECT_EQ(genreg("varval set v a 2 --check").status, 1);
    EXPECT_EQ(genreg("varval set v a 2 --check").out, "");
    EXPECT_NE(genreg("varval set v a 2 --check --diff").out.find("+a = 2"), std::string::npos);
    EXPECT_EQ(status("varval set v a 1 --check"), 0);
    EXPECT_EQ(status("varval set v b 1 --check --add"), 1);
    EXPECT_EQ(status("varval delete v a --check"), 1);
    EXPECT_EQ(status("varval delete v b --check --if-present"), 0);
    EXPECT_EQ(status("varval set v a 2 --dry-run"), 0) << "which shows, and does not answer";
    EXPECT_EQ(objects(genreg("varval set v a 2 --check --json").out).at(0)["changed"], true);
    EXPECT_EQ(objects(genreg("varval set v a 2 -n --json").out).at(0)["changed"], true);
    EXPECT_EQ(status("service set RVN 9.7 --check"), 1);
    EXPECT_EQ(status("varval list v --check"), 2);
    EXPECT_EQ(names(), "v");
    EXPECT_EQ(read("v"), "a = 1\n");
}

TEST_F(Habits, AValueComesFromAFileAndIsNotInTheAnswers) {
    write("v", "a = 1\n");
    write("secret", "mellon\n");
    EXPECT_EQ(status("varval set v a --value-from secret"), 0);
    EXPECT_EQ(read("v"), "a = mellon\n");
    EXPECT_EQ(genreg("varval set v b --value-from secret").err.find("mellon"), std::string::npos);
    EXPECT_EQ(status("varval add v b --value-from -"), 6) << "standard input is empty here";
    EXPECT_EQ(
        std::system(("printf 17 | '" + BUILT_TOOL + "' -q binvar add '" + path("b") + "' n --value-from -").c_str()),
        0);
    EXPECT_EQ(out("binvar get b n"), "17\n");
    EXPECT_EQ(status("variable set RVN KEY --value-from secret"), 0);
    EXPECT_EQ(out("variable get RVN KEY value"), "mellon\n");
    EXPECT_EQ(status("varval set v a x --value-from secret"), 2);
    EXPECT_EQ(status("varval set v a --value-from absent"), 3);
    write("two", "x\ny\n");
    EXPECT_EQ(status("varval set v a --value-from two"), 6);
    write("zero", std::string("x\0y", 3));
    EXPECT_EQ(status("varval set v a --value-from zero"), 6);
    write("long", std::string(70000, 'x'));
    EXPECT_EQ(status("varval set v a --value-from long"), 6);
    EXPECT_EQ(read("v"), "a = mellon\n");
}

TEST_F(Habits, ACommentIsChangedAlone) {
    write("v", "a  =\t\"x y\"   # old\n");
    EXPECT_EQ(status("varval set v a --comment new"), 0);
    EXPECT_EQ(read("v"), "a  =\t\"x y\" # new\n");
    EXPECT_EQ(status("varval set v a --comment", {""}), 0);
    EXPECT_EQ(status("varval set v a"), 2);
    EXPECT_EQ(read("v"), "a  =\t\"x y\"\n");
    write("s", "http 80/tcp www # W\nhttp 80/udp\nodd 1/own\n");
    EXPECT_EQ(status("services set s http --comment both"), 5);
    EXPECT_EQ(status("services set s http/tcp --comment web"), 0);
    EXPECT_EQ(status("services set s http/tcp --no-aliases"), 0);
    EXPECT_EQ(status("services set s odd --comment o"), 0);
    EXPECT_EQ(read("s"), "http 80/tcp # web\nhttp 80/udp\nodd 1/own\t# o\n");
    write("i", "a:2:once:x y\nb::: \n");
    EXPECT_EQ(status("inittab set i a --comment c"), 0);
    EXPECT_EQ(status("inittab set i a 3"), 2);
    EXPECT_EQ(read("i"), "a:2:once:x y # c\nb::: \n");
    EXPECT_EQ(status("binvar add b n 5") + status("binvar set b n --comment c"), 0);
    EXPECT_EQ(objects(out("binvar list b --json")).at(0)["comment"].text() + out("binvar get b n"), "c5\n");
}

TEST_F(Habits, ListsTakePatternsAndLookUpsTakeWhatIsKnown) {
    write("v", "ab = 1\nac = \"2 3\"\nb[1] = \"\nb2 = 4\n");
    EXPECT_EQ(out("varval list v a?"), "NAME  VALUE  COMMENT\nab    1      -\nac    \"2 3\"  -\n");
    EXPECT_EQ(objects(out("varval list v [!a]* --json")).size(), 1U);
    EXPECT_EQ(out("varval list v zz"), "");
    EXPECT_EQ(out("varval get v ac"), "\"2 3\"\n");
    EXPECT_EQ(out("varval get v ac --unquoted"), "2 3\n");
    EXPECT_EQ(out("varval get v ab --unquoted"), "1\n");
    write("s", "http 80/tcp www web\nhttp 80/udp www\nssh 22/tcp\n");
    EXPECT_EQ(objects(out("services list s http --json")).size(), 2U);
    EXPECT_EQ(objects(out("services list s */udp --json")).size(), 1U);
    EXPECT_EQ(out("services get s --alias web"), "80/tcp\n");
    EXPECT_EQ(out("services get s --alias www/udp"), "80/udp\n");
    EXPECT_EQ(status("services get s --alias www"), 5);
    EXPECT_EQ(out("services get s --alias www --all"), "80/tcp\n80/udp\n");
    EXPECT_EQ(out("services get s --port 22"), "ssh/tcp\n");
    EXPECT_EQ(out("services get s --port 80/udp"), "http/udp\n");
    EXPECT_EQ(status("services get s --port 8"), 1);
    EXPECT_EQ(status("services get s --port 8o"), 6);
    EXPECT_EQ(status("services get s") + status("services get s ssh --port 22"), 4);
    EXPECT_EQ(status("instance set RVN 9.7 a[1]") + status("instance set RVN 9.7.0.2 ab"), 0);
    EXPECT_EQ(objects(out("instance list RVN 9.7 * --json")).size(), 1U) << "a version may be short";
    EXPECT_EQ(objects(out("instance list * 9.7* a* --json")).size(), 2U);
    EXPECT_EQ(objects(out("instance list RVN 9.7 a[1] --json")).size(), 1U) << "a name that looks like a pattern";
    EXPECT_EQ(status("instance list * x"), 6);
}

TEST_F(Habits, TheWaitHasADefaultInTheEnvironment) {
    write("f", "a = 1\n");
    const Running holder = start("lock run f -- sh -c", {"touch held; exec sleep 30"});
    while (!exists("held")) {
        ::usleep(5000);
    }
    const Variable none{"GENREG_WAIT", "0"};
    EXPECT_NE(genreg("varval set f a 2").err.find("did not wait"), std::string::npos);
    EXPECT_NE(genreg("varval set f a 2 --wait 0.1").err.find("gave up after 0.1 s"), std::string::npos);
    ::kill(holder.pid, SIGKILL);
    (void)finish(holder);
    const Variable wrong{"GENREG_WAIT", "soon"};
    expectFailure(2, "GENREG_WAIT: soon is no number", "varval get f a");
    EXPECT_EQ(out("varval get f a --wait 1"), "1\n");
    EXPECT_EQ(status("help"), 0);
    const Variable empty{"GENREG_WAIT", ""};
    EXPECT_EQ(status("varval get f a"), 0);
}

TEST_F(Habits, HelpAndVersionAreAnsweredWhereverTheyAreAskedFor) {
    const std::string help = out("help varval set");
    for (const char* line :
         {"varval set -h", "varval set --help", "-h varval set", "varval --help set", "varval set f -h"}) {
        EXPECT_EQ(out(line), help) << line;
    }
    for (const char* line : {"-V", "--version", "varval -V", "varval set --version", "--version varval set f"}) {
        EXPECT_EQ(out(line), out("-V")) << line;
    }
    EXPECT_EQ(out("help help"), out("help --help"));
}

}  // namespace

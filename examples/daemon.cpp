// Answers the value of each name that it is asked for, a line each, for as long as it is asked: ./daemon FILE
//
// It keeps the file's contents in memory: an answer costs one look at the path, and none is older than the file.
#include <genreg/genreg.h>

#include <cstdio>
#include <iostream>
#include <string>

int main(int count, char** words) {
    constexpr unsigned long MOST_BYTES = 1UL << 20;
    if (count != 2) {
        return 2;
    }
    unsigned int code = 0;
    GenRegVarVal settings(words[1], &code);
    code = code == 0 ? settings.KeepContents(MOST_BYTES) : code;
    if (code != 0) {
        std::fprintf(stderr, "%s: %s\n", words[1], genregCodeText(code));
        return 1;
    }
    for (std::string name; std::getline(std::cin, name);) {
        const char* value = nullptr;
        std::cout << (settings.GetStringValue(name.c_str(), &value) ? value : "-") << std::endl;
    }
    return 0;
}

// What a file is besides its contents: an update puts a new file in its place, which is to be given all of it.
#pragma once

#include <sys/stat.h>

#include <map>
#include <string>

namespace tool {

struct Belongings {
    uid_t owner = 0;
    gid_t group = 0;
    mode_t permissions = 0;
    std::map<std::string, std::string> attributes;  // extended ones, by what users call them
};

// By name where it has one, else by number.
[[nodiscard]] std::string userName(uid_t user);

// Of the file that the path leads to; of a file that is not there, nothing.
[[nodiscard]] Belongings belongingsOf(const std::string& path);

// What the new file lacks, as a list for people; empty when it lacks nothing.
[[nodiscard]] std::string lostBelongings(const Belongings& before, const Belongings& after);

}  // namespace tool

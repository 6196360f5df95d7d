// A line "name port/protocol alias ... # comment" with everything that stands between, so that one part can be replaced
// and the rest be kept byte for byte.
#pragma once

#include <genreg/GenRegServices.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "EntryLine.h"

namespace tool {

struct ServicesLine {
    std::string lead;  // blanks before the name
    std::string name;
    std::string beforePort;
    std::string port;           // as written
    std::string protocol;       // with its "/"
    std::string beforeAliases;  // blanks, none where there are no aliases
    std::string aliases;        // as written
    LineComment comment;
    std::string end;  // a carriage return, if the line has one

    [[nodiscard]] std::string text() const;
};

// Takes the line of a service apart.
[[nodiscard]] ServicesLine takeServiceApart(std::string_view line);

// A service as it is asked for.
struct Service {
    std::string name;
    unsigned int port = 0;
    std::string protocol;
    std::optional<std::vector<std::string>> aliases;  // none: as they stand
    std::optional<std::string> comment;               // none: as it stands; empty: none

    // The line with what is asked for; a new one in the form of the library when there is no line yet.
    [[nodiscard]] std::string rewrite(std::string_view line) const;
    // Whether the library reads the line as asked.
    [[nodiscard]] bool isReadFrom(std::string_view line) const;
};

// What the library read.
[[nodiscard]] std::vector<std::string> aliasesOf(const GenRegServicesRecord& record);
[[nodiscard]] unsigned int portOf(const GenRegServicesRecord& record);

// The service "name", "port/protocol" with its aliases. Throws a Failure where a word cannot be written.
[[nodiscard]] Service checkedService(const std::string& name, const std::string& portAndProtocol,
                                     const std::optional<std::vector<std::string>>& aliases,
                                     const std::optional<std::string>& comment);

}  // namespace tool

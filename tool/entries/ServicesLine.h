// A service as it is asked for, written into its line by the library, which keeps the rest byte for byte.
#pragma once

#include <genreg/GenRegServices.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "entries/EntryLine.h"

namespace tool {

// A service as it is asked for.
struct Service {
    std::string name;
    unsigned int port = 0;
    std::string protocol;
    std::optional<std::vector<std::string>> aliases;  // none: as they stand
    std::optional<std::string> comment;               // none: as it stands; empty: none

    // The line with what is asked for; a new one when there is no line yet. One that cannot be written is answered by a
    // text that is too long for any line.
    [[nodiscard]] std::string rewrite(std::string_view line) const;
    // Whether the library reads the line as asked.
    [[nodiscard]] bool isReadFrom(std::string_view line) const;
};

// What the library read, the comment as people mean it.
[[nodiscard]] std::optional<std::string> commentOf(const GenRegServicesRecord& record);
[[nodiscard]] std::vector<std::string> aliasesOf(const GenRegServicesRecord& record);
[[nodiscard]] unsigned int portOf(const GenRegServicesRecord& record);

// The service "name", "port/protocol" with its aliases. Throws a Failure where a word cannot be written.
[[nodiscard]] Service checkedService(const std::string& name, const std::string& portAndProtocol,
                                     const std::optional<std::vector<std::string>>& aliases,
                                     const std::optional<std::string>& comment);

}  // namespace tool

// The hosts that somebody who looks at the store has seen there before: what tells one that is missing from one that
// never was. A file of JSON lines, {"schema":1,"id":ID,"hostName":NAME,"alive":TIME or null}.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "mirror/Picture.h"

namespace fleet {

struct KnownHost {
    std::string hostName;            // empty: it was never told
    std::optional<long long> alive;  // when it was last seen so
};

class Known {
public:
    // Reads the file, if there is one; lines that are none of this form are passed over. Throws a tool::Failure when it
    // cannot be read.
    void read(const std::string& path);
    // Puts a new file in the place of the old one; its folder is made where it is missing. Throws a tool::Failure.
    void write(const std::string& path) const;

    // At that time.
    void remember(const HostLook& look, long long now);
    void forget(const std::string& id) { hosts_.erase(id); }

    [[nodiscard]] const std::map<std::string, KnownHost>& hosts() const { return hosts_; }
    [[nodiscard]] const KnownHost* find(const std::string& id) const;

private:
    std::map<std::string, KnownHost> hosts_;
};

}  // namespace fleet

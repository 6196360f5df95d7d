// How the C library counts characters.
#include <locale.h>
#if __has_include(<xlocale.h>)
#include <xlocale.h>  // where some systems declare what POSIX has in <locale.h>
#endif

#include "system/System.h"

namespace tool {
namespace {

locale_t utf8() {
    static const locale_t locale = [] {
        const locale_t named = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return named != nullptr ? named : newlocale(LC_CTYPE_MASK, "UTF-8", nullptr);  // as others call it
    }();
    return locale;
}

}  // namespace

Utf8Characters::Utf8Characters() : before_(utf8() == nullptr ? nullptr : uselocale(utf8())) {}

Utf8Characters::~Utf8Characters() {
    if (before_ != nullptr) {
        (void)uselocale(static_cast<locale_t>(before_));
    }
}

}  // namespace tool

// What a change and a delete do while an engine walks over a registry.
//
// Base is the engine's update of an Item (a frame, a line): walk(key, matching) carries every item to the copy but
// those that match, which takeMatch(item) is told of while work_ holds the item's record.
#pragma once

#include "genreg/core/Transaction.h"

namespace genreg {

template <typename Base, typename Item>
class ChangeWalk : public Base {
public:
    using Base::Base;

    unsigned int copy() noexcept override {
        if (const unsigned int rc = this->walk(this->call_.key, true)) {
            return rc;
        }
        if (equal_) {
            return this->trace_.failMildly(155, REG_UNCHANGED);
        }
        return changed_ > 0 ? 0 : this->trace_.failMildly(150, REG_NOT_FOUND);
    }

protected:
    ~ChangeWalk() = default;

    // The new record in the place of the item.
    [[nodiscard]] virtual unsigned int replace(const Item& item) noexcept = 0;
    // An item whose record equals the new one.
    [[nodiscard]] virtual unsigned int keep(const Item& item) noexcept = 0;

private:
    unsigned int takeMatch(const Item& item) noexcept override {
        if (this->match(EVERY_FIELD, this->work_.get(), this->call_.record) != 0) {
            equal_ = true;
            return keep(item);
        }
        if (changed_ > 0 && !this->duplicatesAllowed()) {
            return this->trace_.fail(120, REG_SEVERAL_MATCH);
        }
        ++changed_;
        return replace(item);
    }

    unsigned long changed_ = 0;
    bool equal_ = false;
};

template <typename Base, typename Item>
class DeleteWalk : public Base {
public:
    using Base::Base;

    unsigned int copy() noexcept override {
        if (const unsigned int rc = this->walk(this->call_.key, true)) {
            return rc;
        }
        return dropped_ > 0 ? 0 : this->trace_.failMildly(150, REG_NOT_FOUND);
    }

protected:
    ~DeleteWalk() = default;

private:
    unsigned int takeMatch(const Item& /*item*/) noexcept override {
        if (dropped_ > 0 && !this->duplicatesAllowed()) {
            return this->trace_.fail(120, REG_SEVERAL_MATCH);
        }
        ++dropped_;
        return 0;
    }

    unsigned long dropped_ = 0;
};

}  // namespace genreg

#include "Scenarios.h"

#include <algorithm>

namespace prove {

unsigned int Operation::performParts(Registry& registry) const {
    unsigned int rc = registry.begin();
    if (rc != 0) {
        return rc;
    }
    for (const Operation& part : parts) {
        rc = rc == 0 ? part.perform(registry) : rc;
    }
    if (rc == 0) {
        return registry.commit();
    }
    const unsigned int abandoned = registry.abandon();
    return rc != 0 ? rc : abandoned;
}

unsigned int Operation::perform(Registry& registry) const {
    if (!parts.empty()) {
        return performParts(registry);
    }
    switch (kind) {
        case REG_OP_ADD:
            return registry.add(row);
        case REG_OP_CHANGE:
            return registry.change(row);
        case REG_OP_READ: {
            Row found;
            long scanned = 0;
            const unsigned int rc = registry.look(row.name, &found, &scanned);
            return rc == 0 && (found != row || scanned != count) ? WRONG_ANSWER : rc;
        }
        default:
            return registry.remove(row.name);
    }
}

Rows Operation::appliedTo(Rows rows) const {
    if (!parts.empty()) {
        for (const Operation& part : parts) {
            rows = part.appliedTo(rows);
        }
        return rows;
    }
    if (kind == REG_OP_ADD) {
        rows.push_back(row);
    } else if (kind == REG_OP_CHANGE) {
        std::replace_if(
            rows.begin(), rows.end(), [this](const Row& old) { return old.name == row.name; }, row);
    } else if (kind == REG_OP_DELETE) {
        std::erase_if(rows, [this](const Row& old) { return old.name == row.name; });
    }
    return rows;
}

bool Scenario::appendsInPlace() const {
    return operation.kind == REG_OP_ADD && (features & REG_FEATURE_ALLOW_DUPLICATES) != 0 &&
           (features & REG_FEATURE_DEFERRED_COMMIT) == 0;
}

Contents Scenario::after(const Contents& contents, const Operation& change) const {
    Contents result = contents;
    if (change.kind == REG_OP_READ) {
        return result;
    }
    result.present = true;
    result.rows = change.appliedTo(contents.rows);
    if ((features & REG_FEATURE_CHECKSUM_HEADER) != 0 && !appendsInPlace()) {
        result.stamped = true;  // an append in place keeps a file without a header as it is
    }
    return result;
}

std::string Scenario::bytes(const Contents& contents) const {
    const std::string body = contents.preamble + schema->bytes(contents.rows);
    return contents.stamped ? checksumHeader(body) + body : body;
}

namespace {

constexpr unsigned long DEFERRED = REG_FEATURE_DEFERRED_COMMIT;
constexpr unsigned long DUPLICATES = REG_FEATURE_ALLOW_DUPLICATES;
constexpr unsigned long CHECKSUM = REG_FEATURE_CHECKSUM_HEADER;

constexpr const char* PREAMBLE = "# a comment stays as it stands\n\n\tno equal sign \\\n";

struct NamedOperation {
    const char* name;
    Operation operation;
    Operation again;
};

const NamedOperation OPERATIONS[] = {
    {"add", {REG_OP_ADD, {"delta", 4}}, {REG_OP_ADD, {"epsilon", 5}}},
    {"change", {REG_OP_CHANGE, {"beta", 22}}, {REG_OP_CHANGE, {"gamma", 33}}},
    {"delete", {REG_OP_DELETE, {"beta", 0}}, {REG_OP_DELETE, {"gamma", 0}}},
};
// One of each kind, and a record of its own that is gone again.
const NamedOperation BATCH = {"batch",
                              {REG_OP_CHANGE,
                               {},
                               0,
                               {{REG_OP_ADD, {"delta", 4}},
                                {REG_OP_CHANGE, {"beta", 22}},
                                {REG_OP_ADD, {"zeta", 6}},
                                {REG_OP_DELETE, {"alpha", 0}},
                                {REG_OP_CHANGE, {"delta", 44}},
                                {REG_OP_DELETE, {"zeta", 0}}}},
                              {REG_OP_CHANGE, {"gamma", 33}}};
const NamedOperation& ADD = OPERATIONS[0];
const NamedOperation& CHANGE = OPERATIONS[1];
const NamedOperation& DELETE = OPERATIONS[2];

Rows fewRows(bool duplicates) {
    Rows rows = {{"alpha", 1}, {"beta", 2}, {"gamma", 3}};
    if (duplicates) {
        rows.push_back({"beta", 7});
    }
    return rows;
}

// More than any buffer between a record and the file holds.
Rows manyRows() {
    constexpr int COUNT = 6000;
    Rows rows = fewRows(false);
    for (int i = 0; i < COUNT; ++i) {
        rows.push_back({"filler" + std::to_string(i), i});
    }
    return rows;
}

std::string featureText(unsigned long features) {
    std::string text = (features & DEFERRED) != 0 ? "deferred" : "direct";
    text += (features & DUPLICATES) != 0 ? "+duplicates" : "";
    return text + ((features & CHECKSUM) != 0 ? "+checksum" : "");
}

Scenario make(const Schema& schema, const NamedOperation& named, unsigned long features) {
    Scenario scenario;
    scenario.name = std::string(schema.name) + " " + named.name + " " + featureText(features);
    scenario.schema = &schema;
    scenario.features = features;
    scenario.before.stamped = (features & CHECKSUM) != 0;
    scenario.before.preamble = schema.binary ? "" : PREAMBLE;
    scenario.before.rows = fewRows((features & DUPLICATES) != 0);
    scenario.operation = named.operation;
    // A change through the information functions is an add that is refused and a change: two updates, of which the
    // second deletes what the first has set aside. An add shows what a single update does.
    scenario.again = schema.choosesFeatures ? named.again : ADD.again;
    return scenario;
}

std::vector<unsigned long> featuresOf(const Schema& schema) {
    if (!schema.choosesFeatures) {
        return {DEFERRED};
    }
    std::vector<unsigned long> sets = {0, DEFERRED, DUPLICATES, DEFERRED | DUPLICATES};
    if (schema.binary) {
        const std::vector<unsigned long> plain = sets;
        for (const unsigned long set : plain) {
            sets.push_back(set | CHECKSUM);
        }
    }
    return sets;
}

// What is special about where the file lies, or in which state it is found.
void addSpecialCases(const Schema& schema, unsigned long features, std::vector<Scenario>& list) {
    Scenario missing = make(schema, ADD, features);
    missing.name += ", no file";
    missing.before = {};
    missing.before.present = false;
    list.push_back(missing);

    Scenario nowhere = missing;
    nowhere.name += ", no directory";
    nowhere.missingDirectory = true;
    nowhere.quick = schema.choosesFeatures && !schema.binary && features == DEFERRED;
    list.push_back(nowhere);

    Scenario stale = make(schema, schema.choosesFeatures ? CHANGE : ADD, features);
    stale.name += ", stale copies";
    stale.staleCopies = true;
    list.push_back(stale);

    if ((features & CHECKSUM) != 0) {
        for (const NamedOperation& named : OPERATIONS) {
            Scenario first = make(schema, named, features);
            first.name += ", not stamped yet";
            first.before.stamped = false;
            list.push_back(first);
        }
    }
}

Scenario makeLarge(const Schema& schema, const NamedOperation& named, unsigned long features) {
    Scenario large = make(schema, named, features);
    large.name += ", large";
    large.before.rows = manyRows();
    large.large = true;
    return large;
}

void addLargeAndLinked(const Schema& schema, std::vector<Scenario>& list) {
    for (const NamedOperation& named : OPERATIONS) {
        list.push_back(makeLarge(schema, named, DEFERRED));
    }
    if (schema.choosesFeatures) {
        list.push_back(makeLarge(schema, BATCH, DEFERRED));
        // Nothing is verified here: a write that fails in the middle of the copy is known to the copying alone.
        list.push_back(makeLarge(schema, schema.binary ? CHANGE : DELETE, 0));
        list.back().quick = &schema != &PACKED_SCHEMA;
        list.push_back(makeLarge(schema, ADD, schema.binary ? CHECKSUM : 0));
    }
    Scenario linked = make(schema, CHANGE, DEFERRED);
    linked.name += ", through a link";
    linked.linked = true;
    list.push_back(linked);
}

}  // namespace

std::vector<Scenario> updates() {
    std::vector<Scenario> list;
    for (const Schema* schema : {&TEXT_SCHEMA, &BINARY_SCHEMA, &PACKED_SCHEMA, &INSTANCE_SCHEMA, &SERVICE_SCHEMA}) {
        for (const unsigned long features : featuresOf(*schema)) {
            const bool quickFeatures = features == DUPLICATES || features == (DEFERRED | DUPLICATES | CHECKSUM) ||
                                       (features == DEFERRED && (schema == &TEXT_SCHEMA || schema == &INSTANCE_SCHEMA));
            for (const NamedOperation& named : OPERATIONS) {
                list.push_back(make(*schema, named, features));
                list.back().quick = quickFeatures && schema != &PACKED_SCHEMA;
            }
            if (schema->choosesFeatures) {
                list.push_back(make(*schema, BATCH, features));
                list.back().quick = quickFeatures && schema != &PACKED_SCHEMA;
            }
            addSpecialCases(*schema, features, list);
        }
        addLargeAndLinked(*schema, list);
    }
    return list;
}

std::vector<Scenario> readings() {
    std::vector<Scenario> list;
    for (const Schema* schema : {&TEXT_SCHEMA, &BINARY_SCHEMA, &PACKED_SCHEMA, &INSTANCE_SCHEMA, &SERVICE_SCHEMA}) {
        for (const unsigned long checksum : {0UL, CHECKSUM}) {
            if (checksum != 0 && !(schema->binary && schema->choosesFeatures)) {
                continue;
            }
            for (const bool large : {false, true}) {
                Scenario scenario = make(*schema, ADD, DEFERRED | checksum);
                scenario.name = std::string(schema->name) + " read " + featureText(scenario.features);
                if (large) {
                    scenario.name += ", large";
                    scenario.before.rows = manyRows();
                    scenario.large = true;
                }
                scenario.operation = {REG_OP_READ, {"gamma", 3}, static_cast<long>(scenario.before.rows.size())};
                scenario.quick = !large;
                list.push_back(scenario);
            }
        }
    }
    return list;
}

}  // namespace prove

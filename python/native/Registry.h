// A registry file as Python has it, over an object of the library that tells what its records are:
//
//   Object(const std::string& path)         throws Failed
//   using Key, Row                          values that pybind11 converts
//   std::optional<Row> find(const Key&)     none: there is none
//   void readAll(std::vector<Row>*)         all records
//   void add(Row&)
//   void change(const Key&, Row&)           also where it says so already
//   void remove(const Key&, bool every)
// which all throw Failed; none of them touches Python.
//
// One thread uses an object of the library at a time. So each operation takes an object out of those that are idle, or
// makes one, and puts it back: threads need no lock among themselves and wait for no other. The interpreter's own lock
// guards the list of them. A batch has an object to itself.
#pragma once

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>
#include <utility>
#include <vector>

#include "Patience.h"
#include "Text.h"

namespace py = pybind11;

// Runs it, and says of what file a failure is.
template <typename Operation>
auto of(const std::string& path, Operation operation) {
    try {
        return operation();
    } catch (Failed& failed) {
        failed.path = path;
        throw;
    }
}

// Hands each record of the registry on.
template <typename Record, typename Object, typename Take>
void readScan(Object& object, Take take) {
    check(object.OpenScan());
    const auto record = std::make_unique<Record>();
    const auto key = std::make_unique<Record>();
    unsigned int code = 0;
    while ((code = object.GetNext(0, key.get(), record.get())) == 0) {
        take(*record);
    }
    const Outcome outcome = code;
    const unsigned int closed = object.CloseScan();
    if (code != REG_NO_MORE_RECORDS) {
        throw Failed{outcome};
    }
    check(closed);
}

// Removes one record, or every one that matches.
template <typename Object, typename Remove>
void removeAs(Object& object, bool every, Remove remove) {
    if (every) {
        (void)object.setFeature(REG_FEATURE_ALLOW_DUPLICATES);
    }
    const Outcome outcome = remove();
    (void)object.unsetFeature(REG_FEATURE_ALLOW_DUPLICATES);
    if (outcome.code != 0) {
        throw Failed{outcome};
    }
}

template <typename Object>
class Batch {
public:
    using Key = typename Object::Key;
    using Row = typename Object::Row;

    // Of an object in which a batch is open.
    Batch(std::unique_ptr<Object> object, std::string path) : object_(std::move(object)), path_(std::move(path)) {}

    // With the object, which two threads may not use at once.
    template <typename Use>
    auto use(Use use) {
        if (busy_) {
            throw std::runtime_error("the batch is in use by another thread");
        }
        busy_ = true;
        const std::unique_ptr<bool, void (*)(bool*)> release(&busy_, [](bool* busy) { *busy = false; });
        if (object_ == nullptr) {
            throw Failed{Outcome(REG_NO_BATCH), path_};
        }
        return of(path_, [&] { return use(*object_); });
    }

    // Of what may change is told by no exception but Failed.
    template <typename Change>
    void change(Change change) {
        use([&](Object& object) {
            const Outcome outcome = withoutInterpreter([&] {
                change(object);
                return Outcome();
            });
            if (outcome.code != 0) {
                throw Failed{outcome};
            }
        });
    }

    std::optional<Row> get(const Key& key) {
        std::optional<Row> row;
        try {
            change([&](Object& object) { row = object.find(key); });
        } catch (const Failed& failed) {
            // The batch is to make the file, and has not yet.
            if (!failed.outcome.isMissing()) {
                throw;
            }
        }
        return row;
    }

    // Ends the batch whatever comes of it. False: there was nothing to write.
    bool commit(std::optional<double> timeout) {
        const auto object = take();
        return of(path_, [&] {
            object->SetLockWait(Patience(timeout).left(), nullptr, nullptr);
            const Outcome outcome = withoutInterpreter([&] { return Outcome(object->CommitBatch()); });
            if (outcome.code != 0 && outcome.code != REG_UNCHANGED) {
                throw Failed{outcome};
            }
            return outcome.code == 0;
        });
    }

    void abandon() {
        const auto object = take();
        of(path_, [&] { check(object->AbandonBatch()); });
    }

private:
    std::unique_ptr<Object> take() {
        use([](Object& /*object*/) {});
        return std::move(object_);
    }

    std::unique_ptr<Object> object_;
    std::string path_;
    bool busy_ = false;
};

template <typename Object>
class File {
public:
    using Key = typename Object::Key;
    using Row = typename Object::Row;

    File(std::string path, unsigned long keep) : path_(std::move(path)), keep_(keep) { putBack(take()); }

    // Reads with an object of those that are idle.
    template <typename Read>
    void read(std::optional<double> timeout, Read read) {
        of(path_, [&] {
            auto object = take();
            const auto attempt = [&] {
                read(*object);
                return Outcome();
            };
            patiently(*object, Patience(timeout), attempt);
            putBack(std::move(object));
        });
    }

    // What is kept in memory is read only where a look-up has no limit.
    std::optional<Row> get(const Key& key, std::optional<double> timeout) {
        std::optional<Row> row;
        if (keep_ == 0) {
            read(timeout, [&](Object& object) { row = object.find(key); });
            return row;
        }
        of(path_, [&] {
            auto object = take();
            object->SetLockWait(-1, nullptr, nullptr);
            const Outcome outcome = withoutInterpreter([&] {
                row = object->find(key);
                return Outcome();
            });
            if (outcome.code != 0) {
                throw Failed{outcome};
            }
            putBack(std::move(object));
        });
        return row;
    }

    std::vector<Row> list(std::optional<double> timeout) {
        std::vector<Row> rows;
        read(timeout, [&](Object& object) {
            rows.clear();
            object.readAll(&rows);
        });
        return rows;
    }

    std::unique_ptr<Batch<Object>> begin(std::optional<double> timeout) {
        return of(path_, [&] {
            auto object = std::make_unique<Object>(path_);
            patiently(*object, Patience(timeout), [&] { return Outcome(object->BeginBatch()); });
            return std::make_unique<Batch<Object>>(std::move(object), path_);
        });
    }

private:
    static constexpr std::size_t MOST_IDLE = 4;

    std::unique_ptr<Object> take() {
        if (!idle_.empty()) {
            auto object = std::move(idle_.back());
            idle_.pop_back();
            return object;
        }
        return of(path_, [&] {
            auto object = std::make_unique<Object>(path_);
            if (keep_ != 0) {
                check(object->KeepContents(keep_));
            }
            return object;
        });
    }

    void putBack(std::unique_ptr<Object> object) {
        if (idle_.size() < MOST_IDLE) {
            idle_.push_back(std::move(object));
        }
    }

    std::string path_;
    unsigned long keep_;
    std::vector<std::unique_ptr<Object>> idle_;
};

// The two classes, with what each registry has.
template <typename Object>
auto bindRegistry(pybind11::module_& module, const char* file, const char* batch) {
    using OfFile = File<Object>;
    using OfBatch = Batch<Object>;
    using Key = typename Object::Key;
    using Row = typename Object::Row;
    py::class_<OfBatch> ofBatch(module, batch);
    ofBatch.def("get", &OfBatch::get, py::arg("key"))
        .def(
            "add", [](OfBatch& self, Row row) { self.change([&](Object& object) { object.add(row); }); },
            py::arg("row"))
        .def(
            "change",
            [](OfBatch& self, const Key& key, Row row) {
                self.change([&](Object& object) { object.change(key, row); });
            },
            py::arg("key"), py::arg("row"))
        .def(
            "remove",
            [](OfBatch& self, const Key& key, bool every) {
                self.change([&](Object& object) { object.remove(key, every); });
            },
            py::arg("key"), py::arg("every"))
        .def("commit", &OfBatch::commit, py::arg("timeout"))
        .def("abandon", &OfBatch::abandon);
    py::class_<OfFile> ofFile(module, file);
    ofFile
        .def(py::init([](const py::bytes& path, unsigned long keep) { return OfFile(std::string(path), keep); }),
             py::arg("path"), py::arg("keep"))
        .def("get", &OfFile::get, py::arg("key"), py::arg("timeout"))
        .def("list", &OfFile::list, py::arg("timeout"))
        .def("begin", &OfFile::begin, py::arg("timeout"));
    return std::pair(ofFile, ofBatch);
}

void bindLines(pybind11::module_& module);
void bindBinVariables(pybind11::module_& module);
void bindGlobal(pybind11::module_& module);

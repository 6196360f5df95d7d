// Texts between Python and files: UTF-8, and bytes that are none survive both ways (surrogateescape).
#pragma once

#include <pybind11/pybind11.h>

#include <string>

#include "Failed.h"

struct Text {
    std::string bytes;

    // For the library's records, which take what they only read without const.
    [[nodiscard]] char* data() { return bytes.data(); }
};

inline pybind11::str shownText(const char* bytes, std::size_t length) {
    PyObject* const text = PyUnicode_DecodeUTF8(bytes, static_cast<Py_ssize_t>(length), "surrogateescape");
    if (text == nullptr) {
        throw pybind11::error_already_set();
    }
    return pybind11::reinterpret_steal<pybind11::str>(text);
}

template <>
struct pybind11::detail::type_caster<Text> {
    PYBIND11_TYPE_CASTER(Text, const_name("str"));

    bool load(handle source, bool /*convert*/) {
        if (!PyUnicode_Check(source.ptr())) {
            return false;
        }
        const auto bytes =
            reinterpret_steal<object>(PyUnicode_AsEncodedString(source.ptr(), "utf-8", "surrogateescape"));
        if (!bytes) {
            throw error_already_set();
        }
        value.bytes.assign(PyBytes_AS_STRING(bytes.ptr()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.ptr())));
        if (value.bytes.find('\0') != std::string::npos) {
            throw Failed::refused("a text holds a NUL, and would end there");
        }
        return true;
    }

    static handle cast(const Text& text, return_value_policy /*policy*/, handle /*parent*/) {
        return shownText(text.bytes.data(), text.bytes.size()).release();
    }
};

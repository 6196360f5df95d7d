// The native half of the package genreg: the library's public interface, its codes as exceptions.
#include "Registry.h"

namespace {

void raise(const Failed& failed) {
    const auto make = py::module_::import("genreg._errors").attr("failure");
    const GenRegCause& cause = failed.outcome.cause;
    const auto exception =
        make(failed.outcome.code, cause.code, cause.platformCode, shownText(failed.path.data(), failed.path.size()),
             shownText(failed.message.data(), failed.message.size()));
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exception.ptr())), exception.ptr());
}

void translate(std::exception_ptr thrown) {
    try {
        std::rethrow_exception(std::move(thrown));
    } catch (const Failed& failed) {
        try {
            raise(failed);
        } catch (py::error_already_set& error) {
            error.restore();
        }
    }
}

std::vector<unsigned int> codes() {
    std::vector<unsigned int> all;
    while (const unsigned int code = genregCodeAt(all.size())) {
        all.push_back(code);
    }
    return all;
}

}  // namespace

PYBIND11_MODULE(_genreg, module) {
    py::register_exception_translator(translate);
    module.def("code_name", genregCodeName, py::arg("code"));
    module.def("code_text", genregCodeText, py::arg("code"));
    module.def("codes", codes);
    bindLines(module);
    bindBinVariables(module);
    bindGlobal(module);
}

// tarnwick_markdown._core: the engine, the command line's file selection, the link check and
// the index store, for Python.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "check/find.hpp"
#include "repo/extraction.hpp"
#include "repo/records.hpp"
#include "store/store.hpp"
#include "tarnwick/markdown.hpp"
#include "text/utf8.hpp"

namespace py = pybind11;
using tarnwick::Symbol;
using tarnwick::engines::references::ReferenceInfo;

namespace {

// A new reference to text as the records write it: bytes that are not UTF-8 become U+FFFD, as
// in the command's JSON Lines. Well-formed text, nearly all of it, is decoded once.
PyObject* new_text(std::string_view bytes) {
  if (PyObject* decoded =
          PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()), nullptr)) {
    return decoded;
  }
  PyErr_Clear();
  const std::string replaced = tarnwick::text::decode_utf8(bytes);
  return PyUnicode_DecodeUTF8(replaced.data(), static_cast<Py_ssize_t>(replaced.size()), nullptr);
}

PyObject* new_reference(PyObject* object) {
  Py_INCREF(object);
  return object;
}

PyObject* new_optional_text(const std::optional<std::string>& value) {
  return value ? new_text(*value) : new_reference(Py_None);
}

// The records' keys and their most common values, made once: every record reuses them.
struct Keys {
  py::str type{"type"}, path{"path"}, file_id{"file_id"}, id{"id"}, name{"name"}, kind{"kind"},
      fqn{"fqn"}, start_line{"start_line"}, end_line{"end_line"}, signature{"signature"},
      is_export{"is_export"}, docstring{"docstring"}, qualifier{"qualifier"}, line{"line"},
      source_fqn{"source_fqn"}, symbol{"symbol"}, reference{"reference"}, section{"section"},
      doc_link{std::string(to_string(tarnwick::engines::references::RefKind::doc_link))},
      wiki_link{std::string(to_string(tarnwick::engines::references::RefKind::wiki_link))};
};

const Keys& keys() {
  // Made with the GIL held, on the first call; kept for the life of the interpreter.
  static const Keys* const made = new Keys;
  return *made;
}

// The record types the package defines (dict subclasses), handed in by the package.
struct RecordTypes {
  py::object symbol;
  py::object reference;
};

// Records are made with the C API, a value at a time straight into the dict: the GIL is held
// for all of it, so it is the part of index_paths that no thread can share.
class RecordMaker {
 public:
  explicit RecordMaker(const py::object& type) : record_(PyObject_CallNoArgs(type.ptr())) {
    if (!record_) throw py::error_already_set();
  }
  RecordMaker(const RecordMaker&) = delete;
  RecordMaker& operator=(const RecordMaker&) = delete;
  ~RecordMaker() { Py_XDECREF(record_); }

  // Sets record[key] to a new reference, which the record takes.
  RecordMaker& put(const py::handle& key, PyObject* value) {
    const int failed = value ? PyDict_SetItem(record_, key.ptr(), value) : -1;
    Py_XDECREF(value);
    if (failed) throw py::error_already_set();
    return *this;
  }
  RecordMaker& put_shared(const py::handle& key, const py::handle& value) {
    return put(key, new_reference(value.ptr()));
  }
  RecordMaker& put_int(const py::handle& key, std::int64_t value) {
    return put(key, PyLong_FromLongLong(value));
  }

  // The record, appended to `list`.
  void append_to(const py::list& list) {
    if (PyList_Append(list.ptr(), record_) != 0) throw py::error_already_set();
  }

 private:
  PyObject* record_;  // owned
};

// One record with exactly the keys of its JSON Lines record, in their order.
void append_symbol(const py::list& out, const py::object& type, const py::object& path,
                   const Symbol& s) {
  const Keys& k = keys();
  RecordMaker record(type);
  record.put_shared(k.type, k.symbol)
      .put_shared(k.path, path)
      .put_int(k.file_id, s.file_id)
      .put(k.id, s.id ? PyLong_FromLongLong(*s.id) : new_reference(Py_None))
      .put(k.name, new_text(s.name))
      .put(k.kind, s.kind == "section" ? new_reference(k.section.ptr()) : new_text(s.kind))
      .put(k.fqn, new_text(s.fqn))
      .put_int(k.start_line, s.start_line)
      .put_int(k.end_line, s.end_line)
      .put(k.signature, new_text(s.signature))
      .put(k.is_export, PyBool_FromLong(s.is_export))
      .put(k.docstring, new_optional_text(s.docstring))
      .append_to(out);
}

void append_reference(const py::list& out, const py::object& type, const py::object& path,
                      std::int64_t file_id, const ReferenceInfo& r) {
  using tarnwick::engines::references::RefKind;
  const Keys& k = keys();
  RecordMaker record(type);
  record.put_shared(k.type, k.reference)
      .put_shared(k.path, path)
      .put_int(k.file_id, file_id)
      .put(k.name, new_text(r.name))
      .put(k.qualifier, new_optional_text(r.qualifier))
      .put_shared(k.kind, r.kind == RefKind::wiki_link ? k.wiki_link : k.doc_link)
      .put_int(k.line, r.line)
      .put(k.source_fqn, new_optional_text(r.source_fqn))
      .append_to(out);
}

// A path as the records write it, as a Python object.
py::object path_object(const std::string& path) {
  const py::object written = py::reinterpret_steal<py::object>(new_text(path));
  if (!written) throw py::error_already_set();
  return written;
}

// Appends the records of one file: its symbols', then its references'.
void append_record_objects(const py::list& symbols, const py::list& references,
                           const RecordTypes& types, const std::string& path, std::int64_t file_id,
                           const tarnwick::IndexedDocument& document) {
  const py::object written_path = path_object(path);
  for (const Symbol& s : document.symbols) append_symbol(symbols, types.symbol, written_path, s);
  for (const ReferenceInfo& r : document.references) {
    append_reference(references, types.reference, written_path, file_id, r);
  }
}

py::tuple index_one(const py::object& data, const std::string& path, std::int64_t file_id,
                    const py::object& symbol_type, const py::object& reference_type) {
  std::string bytes;
  if (py::isinstance<py::bytes>(data) || py::isinstance<py::str>(data)) {
    bytes = data.cast<std::string>();  // a str as UTF-8
  } else {
    throw py::type_error("index() takes bytes or str, not " +
                         std::string(py::str(data.get_type().attr("__name__"))));
  }
  tarnwick::IndexedDocument document;
  {
    py::gil_scoped_release released;
    document =
        tarnwick::index_markdown(bytes, path, {.prefix = {}, .file_id = file_id, .debug_log = {}});
  }
  py::list symbols, references;
  append_record_objects(symbols, references, {symbol_type, reference_type}, path, file_id,
                        document);
  return py::make_tuple(symbols, references);
}

// The files of the arguments as the command selects and orders them: (location, path,
// prefix) triples, and the (what, reason) of each argument or entry that could not be read.
py::tuple select_paths(const std::vector<std::string>& paths) {
  tarnwick::repo::Selection selection;
  {
    py::gil_scoped_release released;
    selection = tarnwick::repo::select_files(paths);
  }
  py::list files, errors;
  for (const auto& f : selection.files) {
    files.append(py::make_tuple(f.location.string(), f.path, f.prefix));
  }
  for (const auto& e : selection.errors) errors.append(py::make_tuple(e.what, e.reason));
  return py::make_tuple(files, errors);
}

using FileTriples = std::vector<std::tuple<std::string, std::string, std::string>>;

// The files (location, path, prefix) that select_paths gave, to read again.
std::vector<tarnwick::repo::SourceFile> source_files(const FileTriples& files) {
  std::vector<tarnwick::repo::SourceFile> sources;
  for (const auto& [location, path, prefix] : files)
    sources.push_back({location, path, prefix, {}});
  return sources;
}

// Indexes the files (location, path, prefix) on `jobs` threads, numbering them from
// `first_file_id`; returns (records, error): the records of the files in order (of the
// package's record types), up to the first file that cannot be read, and why it could not be
// (none when every file was read).
py::tuple index_files(const FileTriples& files, unsigned jobs, std::int64_t first_file_id,
                      const py::object& symbol_type, const py::object& reference_type) {
  const std::vector<tarnwick::repo::SourceFile> sources = source_files(files);
  std::vector<tarnwick::repo::Extracted> extracted;
  extracted.reserve(sources.size());
  {
    py::gil_scoped_release released;
    tarnwick::repo::extract_in_order(
        sources, first_file_id, jobs, false,
        [&](const tarnwick::repo::SourceFile&, tarnwick::repo::Extracted&& e) {
          const bool read = !e.error;
          extracted.push_back(std::move(e));
          return read;
        });
  }
  const RecordTypes types{symbol_type, reference_type};
  py::list records;
  for (std::size_t i = 0; i < extracted.size(); ++i) {
    const auto& e = extracted[i];
    if (e.error) {
      return py::make_tuple(records, tarnwick::repo::describe(*e.error));
    }
    append_record_objects(records, records, types, sources[i].path, e.file_id, e.found);
  }
  return py::make_tuple(records, py::none());
}

// The JSON Lines of files (location, path, prefix), numbered from `first_file_id`, exactly as
// `tarnwick-md index` writes them; raises OSError naming the first file that cannot be read.
py::bytes index_files_jsonl(const FileTriples& files, unsigned jobs, std::int64_t first_file_id) {
  const std::vector<tarnwick::repo::SourceFile> sources = source_files(files);
  std::string text;
  std::optional<std::string> error;
  {
    py::gil_scoped_release released;
    tarnwick::repo::extract_in_order(
        sources, first_file_id, jobs, false,
        [&](const tarnwick::repo::SourceFile& file, const tarnwick::repo::Extracted& e) {
          if (e.error) {
            error = tarnwick::repo::describe(*e.error);
            return false;
          }
          tarnwick::repo::append_records(text, file.path, e.file_id, e.found);
          return true;
        });
  }
  if (error) throw py::value_error(*error);
  return py::bytes(text);
}

// The JSON Lines of one file's bytes at a repository path, as the command writes them.
py::bytes index_jsonl(const py::bytes& data, const std::string& path, std::int64_t file_id) {
  const std::string bytes = data;
  std::string text;
  {
    py::gil_scoped_release released;
    const tarnwick::IndexedDocument document =
        tarnwick::index_markdown(bytes, path, {.prefix = {}, .file_id = file_id, .debug_log = {}});
    tarnwick::repo::append_records(text, path, file_id, document);
  }
  return py::bytes(text);
}

// The problems of the links under `paths`, as `tarnwick-md check` finds them: (problems as
// tuples of the JSON Lines keys' values, files checked, links checked, errors).
py::tuple check_paths(const std::vector<std::string>& paths, const std::optional<std::string>& root,
                      const std::vector<std::string>& ignore, bool wiki,
                      const std::vector<std::string>& changed,
                      const std::optional<std::string>& changed_since, unsigned jobs) {
  tarnwick::check::CheckOptions options;
  options.paths = paths;
  options.root = root;
  options.wiki = wiki;
  options.changed = changed;
  options.changed_since = changed_since;
  options.jobs = jobs;
  for (const std::string& name : ignore) {
    const auto code = tarnwick::check::code_named(name);
    if (!code) throw py::value_error("'" + name + "' is not a problem code");
    options.ignored.push_back(*code);
  }
  tarnwick::check::CheckResult result;
  {
    py::gil_scoped_release released;
    result = tarnwick::check::find_problems(options);
  }
  if (result.stopped) throw py::value_error(*result.stopped);
  py::list problems;
  for (const tarnwick::check::Problem& problem : result.problems) {
    problems.append(
        py::make_tuple(problem.path, problem.line, problem.column, problem.target,
                       std::string(tarnwick::check::info(problem.code).name), problem.message,
                       problem.suggestion ? py::object(py::str(*problem.suggestion)) : py::none()));
  }
  return py::make_tuple(problems, result.files, result.links, result.errors);
}

// A store that cannot be opened, updated or read: raised as the package's StoreError.
class StoreFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

template <typename T>
T& value_of(tarnwick::store::Result<T>& result) {
  if (!result.ok()) throw StoreFailure(result.failure().message);
  return *result;
}

// A connection to an index store, for one Python object. Its calls release the GIL while
// SQLite and the engine work, and take turns, so that threads may share it.
class PyStore {
 public:
  PyStore(const std::string& path, double timeout, bool rebuild) {
    const auto access =
        rebuild ? tarnwick::store::Access::rebuild : tarnwick::store::Access::update;
    const auto wait = std::chrono::milliseconds(static_cast<std::int64_t>(timeout * 1000));
    auto opened = [&] {
      py::gil_scoped_release released;
      return tarnwick::store::Store::open(path, access, wait);
    }();
    store_.emplace(std::move(value_of(opened)));
  }

  // Brings the store up to date: (files, read, parsed, reused, unchanged, unreadable, removed,
  // errors as messages).
  py::tuple update(const std::optional<std::vector<std::string>>& paths, bool hidden, bool follow,
                   bool no_ignore, const std::vector<std::string>& excludes, bool paths_from_cwd,
                   const std::optional<std::string>& prefix, unsigned jobs) {
    std::optional<tarnwick::store::Sources> sources;
    if (paths) {
      sources.emplace();
      sources->paths = *paths;
      sources->selection.hidden = hidden;
      sources->selection.follow = follow;
      sources->selection.git_ignores = !no_ignore;
      sources->selection.excludes = excludes;
      sources->selection.paths_from_cwd = paths_from_cwd;
      sources->selection.prefix = prefix;
    }
    auto updated = [&] {
      py::gil_scoped_release released;
      const std::lock_guard lock(mutex_);
      return open().update(sources, {.jobs = jobs, .verbose = false, .reading = {}, .read = {}});
    }();
    const tarnwick::store::UpdateSummary& summary = value_of(updated);
    py::list errors;
    for (const auto& e : summary.errors) errors.append(tarnwick::repo::describe(e));
    return py::make_tuple(summary.files, summary.read, summary.parsed, summary.reused,
                          summary.unchanged, summary.unreadable, summary.removed, errors);
  }

  py::list references_to(const std::string& target, const py::object& reference_type) {
    auto found = [&] {
      py::gil_scoped_release released;
      const std::lock_guard lock(mutex_);
      return open().references_to(target);
    }();
    py::list records;
    for (const auto& each : value_of(found)) {
      append_reference(records, reference_type, path_object(each.file.path), each.file.file_id,
                       each.reference);
    }
    return records;
  }

  py::list symbols_matching(const std::string& query, std::size_t limit,
                            const py::object& symbol_type) {
    auto found = [&] {
      py::gil_scoped_release released;
      const std::lock_guard lock(mutex_);
      return open().symbols_matching(query, limit);
    }();
    py::list records;
    for (const auto& each : value_of(found)) {
      append_symbol(records, symbol_type, path_object(each.file.path), each.symbol);
    }
    return records;
  }

  // Every record, as `tarnwick-md export` writes them.
  py::list export_records(const py::object& symbol_type, const py::object& reference_type) {
    std::vector<std::pair<tarnwick::store::StoredFile, tarnwick::IndexedDocument>> files;
    auto exported = [&] {
      py::gil_scoped_release released;
      const std::lock_guard lock(mutex_);
      return open().export_records(
          [&](const tarnwick::store::StoredFile& file, const tarnwick::IndexedDocument& document) {
            files.emplace_back(file, document);
            return true;
          });
    }();
    value_of(exported);
    const RecordTypes types{symbol_type, reference_type};
    py::list out;
    for (const auto& [file, document] : files) {
      append_record_objects(out, out, types, file.path, file.file_id, document);
    }
    return out;
  }

  void close() {
    py::gil_scoped_release released;
    const std::lock_guard lock(mutex_);
    store_.reset();
  }

 private:
  tarnwick::store::Store& open() {
    if (!store_) throw StoreFailure("the store is closed");
    return *store_;
  }

  std::mutex mutex_;
  std::optional<tarnwick::store::Store> store_;
};

}  // namespace

PYBIND11_MODULE(_core, module) {
  module.doc() = "The C++ core of tarnwick_markdown.";
  module.attr("VERSION") = TARNWICK_MARKDOWN_VERSION;
  module.def("index", &index_one, py::arg("data"), py::arg("path"), py::arg("file_id"),
             py::arg("symbol_type"), py::arg("reference_type"));
  module.def("select", &select_paths, py::arg("paths"));
  module.def("fqn_prefix", &tarnwick::fqn_prefix, py::arg("path"));
  module.def("index_files_jsonl", &index_files_jsonl, py::arg("files"), py::arg("jobs"),
             py::arg("first_file_id"));
  module.def("index_jsonl", &index_jsonl, py::arg("data"), py::arg("path"), py::arg("file_id"));
  module.def("check", &check_paths, py::arg("paths"), py::arg("root"), py::arg("ignore"),
             py::arg("wiki"), py::arg("changed"), py::arg("changed_since"), py::arg("jobs"));
  module.def("index_files", &index_files, py::arg("files"), py::arg("jobs"),
             py::arg("first_file_id"), py::arg("symbol_type"), py::arg("reference_type"));
  py::register_exception<StoreFailure>(module, "StoreError", PyExc_OSError);
  py::class_<PyStore>(module, "Store")
      .def(py::init<const std::string&, double, bool>(), py::arg("path"), py::arg("timeout"),
           py::arg("rebuild"))
      .def("update", &PyStore::update, py::arg("paths"), py::arg("hidden"), py::arg("follow"),
           py::arg("no_ignore"), py::arg("exclude"), py::arg("paths_from_cwd"), py::arg("prefix"),
           py::arg("jobs"))
      .def("references_to", &PyStore::references_to, py::arg("target"), py::arg("reference_type"))
      .def("symbols_matching", &PyStore::symbols_matching, py::arg("query"), py::arg("limit"),
           py::arg("symbol_type"))
      .def("export", &PyStore::export_records, py::arg("symbol_type"), py::arg("reference_type"))
      .def("close", &PyStore::close);
}

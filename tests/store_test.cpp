// The index store through its C++ interface: what an update reads and keeps, the queries'
// answers on a small repository, and stores that cannot be used. The command's side (export
// against index after every kind of change, crashes, readers during an update) is in
// tests/python/test_store.py.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "repo/records.hpp"
#include "store/store.hpp"

namespace tarnwick::store {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class StoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    dir_ = fs::temp_directory_path() /
           ("tarnwick-store-" + std::to_string(::getpid()) + "-" + test->name());
    fs::remove_all(dir_);
    fs::create_directories(root());
  }
  void TearDown() override { fs::remove_all(dir_); }

  fs::path root() const { return dir_ / "repo"; }
  fs::path db() const { return dir_ / "index.db"; }

  void write(const std::string& relative, const std::string& content) {
    const fs::path path = root() / relative;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
  }

  Store open(Access access = Access::update) {
    auto opened = Store::open(db(), access, 1s);
    if (!opened.ok()) ADD_FAILURE() << opened.failure().message;
    return std::move(*opened);
  }

  UpdateSummary update(Store& store) {
    UpdateOptions options;
    options.jobs = 2;
    auto updated = store.update(Sources{{root().string()}, {}}, options);
    if (!updated.ok()) ADD_FAILURE() << updated.failure().message;
    return *updated;
  }

  // The records as export gives them, and as index would: the same JSON Lines.
  static std::string exported(Store& store) {
    std::string records;
    auto errors = store.export_records([&](const StoredFile& file, const IndexedDocument& d) {
      repo::append_records(records, file.path, file.file_id, d);
      return true;
    });
    EXPECT_TRUE(errors.ok());
    return records;
  }

  std::string indexed() const {
    std::string records;
    const repo::Selection selection = repo::select_files({root().string()});
    repo::extract_in_order(selection.files, 1, 1, false,
                           [&](const repo::SourceFile& file, const repo::Extracted& e) {
                             repo::append_records(records, file.path, e.file_id, e.found);
                             return true;
                           });
    return records;
  }

  // Each reference as "path:line name#qualifier".
  static std::vector<std::string> references(Store& store, std::string_view target) {
    auto found = store.references_to(target);
    EXPECT_TRUE(found.ok());
    std::vector<std::string> lines;
    for (const FoundReference& each : *found) {
      const auto& r = each.reference;
      lines.push_back(each.file.path + ":" + std::to_string(r.line) + " " + r.name +
                      (r.qualifier ? "#" + *r.qualifier : ""));
    }
    return lines;
  }

  static std::vector<std::string> symbols(Store& store, std::string_view query,
                                          std::size_t limit = 20) {
    auto found = store.symbols_matching(query, limit);
    EXPECT_TRUE(found.ok());
    std::vector<std::string> fqns;
    for (const FoundSymbol& each : *found) fqns.push_back(each.symbol.fqn);
    return fqns;
  }

  std::map<std::string, std::int64_t> symbol_keys(Store& store, std::string_view query) {
    std::map<std::string, std::int64_t> keys;
    auto found = store.symbols_matching(query, 100);
    for (const FoundSymbol& each : *found) {
      keys[each.symbol.fqn] = each.key;
    }
    return keys;
  }

  // A small repository whose references and sections the queries must find.
  void write_repository() {
    write("README.md",
          "# Project\n"
          "See [the guide](docs/guide.md) and [install](docs/guide.md#install).\n"
          "[[Guide]] and [[guide#Install]] and [[Guide#install-steps]]\n"
          "[root](/docs/guide.md#Install) [self](#project) [folder](docs/)\n");
    write("docs/guide.md",
          "# Guide\n"
          "## Install\n"
          "Run the installer.\n"
          "## Install\n"
          "Twice, with the configuration file.\n"
          "[back](../README.md) [out](../../outside.md) [same](#install-1) [[README]]\n");
    write("notes/plan.md", "# Plan\nNothing links here; [it links on](../README.md#Project).\n");
  }

  fs::path dir_;
};

TEST_F(StoreTest, FindsTheReferencesThatLeadToAFile) {
  write_repository();
  Store store = open();
  update(store);
  const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
      {"docs/guide.md",
       {"README.md:2 docs/guide.md", "README.md:2 docs/guide.md#install", "README.md:3 Guide",
        "README.md:3 guide#Install", "README.md:3 Guide#install-steps",
        "README.md:4 /docs/guide.md#Install", "docs/guide.md:6 #install-1"}},
      // Written so, or naming the same heading: GitHub's id, in any case, or the heading's text.
      {"docs/guide.md#install",
       {"README.md:2 docs/guide.md#install", "README.md:3 guide#Install",
        "README.md:4 /docs/guide.md#Install"}},
      {"docs/guide.md#Install",
       {"README.md:2 docs/guide.md#install", "README.md:3 guide#Install",
        "README.md:4 /docs/guide.md#Install"}},
      {"docs/guide.md#install-1", {"docs/guide.md:6 #install-1"}},
      {"docs/guide.md#install-steps", {"README.md:3 Guide#install-steps"}},
      {"./docs//guide.md#nothing", {}},
      {"README.md",
       {"README.md:4 #project", "docs/guide.md:6 ../README.md", "docs/guide.md:6 README",
        "notes/plan.md:2 ../README.md#Project"}},
      {"README.md#project", {"README.md:4 #project", "notes/plan.md:2 ../README.md#Project"}},
      {"docs", {"README.md:4 docs/"}},
      {"notes/plan.md", {}},
      {"outside.md", {}},
      {"../README.md", {}},
  };
  for (const auto& [target, expected] : cases) {
    EXPECT_EQ(references(store, target), expected) << target;
  }
  // A page that names two files leads to neither.
  write("docs/old/Guide.md", "# Old\n");
  update(store);
  EXPECT_EQ(references(store, "docs/guide.md#install"),
            (std::vector<std::string>{"README.md:2 docs/guide.md#install",
                                      "README.md:4 /docs/guide.md#Install"}));
}

TEST_F(StoreTest, FindsSectionsByTheirWordsBestFirst) {
  write_repository();
  Store store = open();
  update(store);
  const std::vector<std::string> install = {"docs.guide.Guide.Install",
                                            "docs.guide.Guide.Install#2", "README.Project"};
  // A name weighs more than a docstring (README's says "install").
  const std::vector<std::tuple<std::string, std::size_t, std::vector<std::string>>> cases = {
      {"install", 20, install},
      {"INSTALL guide", 20, install},
      {"install", 1, {"docs.guide.Guide.Install"}},
      // A word ending in "*" is a prefix.
      {"inst*", 20, install},
      {"configuration", 20, {"docs.guide.Guide.Install#2"}},
      {"plan", 20, {"notes.plan.Plan"}},
      {"guide plan", 20, {}},
      // Characters of the search syntax are words, not syntax.
      {"\"install", 20, install},
      {"install OR plan", 20, {}},
      {"-", 20, {}},
      {"", 20, {}},
  };
  for (const auto& [query, limit, expected] : cases) {
    EXPECT_EQ(symbols(store, query, limit), expected) << query;
  }
}

TEST_F(StoreTest, ReadsOnlyWhatChangedAndKeepsKeys) {
  write("a.md", "# A\n## Setup\ntext\n");
  write("b.md", "# B\n[a](a.md)\n");
  write("c.md", "# C\n");
  Store store = open();
  const auto counts = [](const UpdateSummary& s) {
    return std::vector<std::size_t>{s.files, s.read, s.parsed, s.reused, s.unchanged, s.removed};
  };
  EXPECT_EQ(counts(update(store)), (std::vector<std::size_t>{3, 3, 3, 0, 0, 0}));
  const auto keys = symbol_keys(store, "setup");
  // Files just written are read again (their time may not have changed yet), not parsed.
  EXPECT_EQ(counts(update(store)), (std::vector<std::size_t>{3, 3, 0, 0, 3, 0}));

  write("a.md", "# A\n## Setup\nother text\n");        // edited: parsed
  fs::rename(root() / "b.md", root() / "moved.md");    // renamed: reused
  fs::copy_file(root() / "c.md", root() / "copy.md");  // copied: reused
  write("d.md", "# D\n");                              // added: parsed
  EXPECT_EQ(counts(update(store)), (std::vector<std::size_t>{5, 5, 2, 2, 1, 0}));
  EXPECT_EQ(symbol_keys(store, "setup"), keys);  // a section keeps its key across an edit
  EXPECT_EQ(exported(store), indexed());

  fs::remove(root() / "c.md");
  EXPECT_EQ(counts(update(store)), (std::vector<std::size_t>{4, 4, 0, 0, 4, 1}));
  EXPECT_EQ(exported(store), indexed());
  EXPECT_EQ(references(store, "a.md"), (std::vector<std::string>{"moved.md:2 a.md"}));
}

TEST_F(StoreTest, ARenamedFileKeepsItsKeyAndItsLinksLeadFromItsNewFolder) {
  write("docs/a.md", "# A\n[b](b.md)\n");
  write("docs/b.md", "# B\n");
  write("b.md", "# Top B\n");
  Store store = open();
  update(store);
  const auto key_of = [&](std::string_view target) {
    return store.references_to(target)->at(0).file.key;
  };
  const std::int64_t key = key_of("docs/b.md");
  fs::rename(root() / "docs/a.md", root() / "a.md");
  const UpdateSummary summary = update(store);
  EXPECT_EQ(summary.parsed, 0u);
  EXPECT_EQ(references(store, "docs/b.md"), std::vector<std::string>{});
  EXPECT_EQ(references(store, "b.md"), (std::vector<std::string>{"a.md:2 b.md"}));
  EXPECT_EQ(key_of("b.md"), key);
  EXPECT_EQ(exported(store), indexed());
}

TEST_F(StoreTest, RefusesFilesThatAreNotStoresOfThisSchema) {
  const auto failure = [&](Access access) {
    auto opened = Store::open(db(), access, 100ms);
    return opened.ok() ? std::string("opened") : opened.failure().message;
  };
  const auto sql = [&](const char* statements) {
    sqlite3* connection = nullptr;
    ASSERT_EQ(sqlite3_open(db().c_str(), &connection), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(connection, statements, nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(connection);
  };
  const std::string name = db().string();
  EXPECT_EQ(failure(Access::read), "no store at " + name);

  std::ofstream(db()) << "# Not a database\n";
  for (const Access access : {Access::read, Access::update, Access::rebuild}) {
    EXPECT_EQ(failure(access), name + " is not a tarnwick-md store: not an SQLite database");
  }
  fs::remove(db());
  sql("CREATE TABLE notes(text)");
  for (const Access access : {Access::read, Access::update, Access::rebuild}) {
    EXPECT_EQ(failure(access), name + " is not a tarnwick-md store");
  }
  fs::remove(db());
  write("a.md", "# A\n");
  {
    Store store = open();
    update(store);
  }
  sql("PRAGMA user_version = 99");
  const std::string newer = name +
                            " is a store of schema 99, newer than this tarnwick-md's 1: use a "
                            "newer tarnwick-md, or --rebuild to start over";
  EXPECT_EQ(failure(Access::read), newer);
  EXPECT_EQ(failure(Access::update), newer);
  // --rebuild starts over, in the update's transaction.
  Store rebuilt = open(Access::rebuild);
  update(rebuilt);
  EXPECT_EQ(exported(rebuilt), indexed());
  EXPECT_EQ(failure(Access::read), "opened");

  std::ofstream(dir_ / "empty.db").flush();
  auto empty = Store::open(dir_ / "empty.db", Access::read, 100ms);
  ASSERT_FALSE(empty.ok());
  EXPECT_EQ(empty.failure().message,
            (dir_ / "empty.db").string() + " is not a tarnwick-md store: it is empty");
}

TEST_F(StoreTest, AnUpdateWaitsForAnotherWriterAndReadersDoNot) {
  write("a.md", "# A\n");
  Store store = open();
  update(store);
  const std::string before = exported(store);
  sqlite3* writer = nullptr;
  ASSERT_EQ(sqlite3_open(db().c_str(), &writer), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(writer, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  write("b.md", "# B\n");
  auto busy = Store::open(db(), Access::update, 100ms)->update(std::nullopt, {});
  ASSERT_FALSE(busy.ok());
  EXPECT_NE(busy.failure().message.find(db().string() + " is busy"), std::string::npos)
      << busy.failure().message;
  auto reader = Store::open(db(), Access::read, 100ms);
  ASSERT_TRUE(reader.ok());
  EXPECT_EQ(exported(*reader), before);
  sqlite3_exec(writer, "ROLLBACK", nullptr, nullptr, nullptr);
  sqlite3_close(writer);
  // With no sources, the update repeats the last one's.
  ASSERT_TRUE(store.update(std::nullopt, {}).ok());
  EXPECT_EQ(exported(*reader), indexed());
}

}  // namespace
}  // namespace tarnwick::store

// A thin layer over a SQLite connection: statements, rows, values. Not thread-safe by itself; NoteIndex's
// lock guards every use.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace vesk {

/// A value to bind. Text ends at an embedded NUL; a blob of no bytes binds as NULL.
struct SQLValue {
    struct Blob {
        std::string bytes;
        bool operator==(const Blob&) const = default;
    };
    struct Null {
        bool operator==(const Null&) const = default;
    };
    using Value = std::variant<std::string, std::int64_t, double, Blob, Null>;

    static SQLValue text(std::string_view text);
    static SQLValue textOrNull(const std::optional<std::string>& text);
    static SQLValue integer(std::int64_t number) { return {Value(number)}; }
    static SQLValue real(double number) { return {Value(number)}; }
    static SQLValue blob(std::string bytes) { return {Value(Blob{std::move(bytes)})}; }
    static SQLValue null() { return {Value(Null{})}; }

    Value value;
};
using SQLBindings = std::vector<SQLValue>;

/// A prepared statement, finalised when released.
class Statement {
public:
    /// `kept` tells SQLite that the statement is used many times. Throws IndexError.
    Statement(sqlite3* database, std::string_view sql, bool kept = false);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    /// Ready to be bound and run again; nothing is bound.
    void reset();
    /// Parameters are numbered from 1.
    void bind(int index, const SQLValue& value);
    void bind(std::span<const SQLValue> values);
    // Without a copy; the bytes stay unchanged until the statement is reset.
    void bindText(int index, std::string_view text);
    void bindBlob(int index, std::string_view bytes);
    void bindInt(int index, std::int64_t number);
    void bindDouble(int index, double number);
    void bindNull(int index);
    /// True when a row is there, false when done; throws IndexError on anything else.
    bool step();
    /// Steps until done.
    void finish();

    sqlite3_stmt* handle() const { return handle_; }
    const std::string& sql() const { return sql_; }

private:
    sqlite3_stmt* handle_ = nullptr;
    std::string sql_;
};

/// An open database file. Safe on any thread by itself: SQLite serialises the calls.
class SQLiteConnection {
public:
    /// Makes the file if it isn't there. Throws IndexError (cannotOpen).
    explicit SQLiteConnection(const std::string& path);
    ~SQLiteConnection();
    SQLiteConnection(const SQLiteConnection&) = delete;
    SQLiteConnection& operator=(const SQLiteConnection&) = delete;

    /// Any number of statements without parameters; their rows are passed over. Throws IndexError.
    void exec(std::string_view sql);
    void setBusyTimeout(int milliseconds);
    /// Whether triggers run for this connection's writes; they do at first.
    void setTriggersEnabled(bool enabled);
    /// The rowid of the latest row inserted into an ordinary table.
    std::int64_t lastInsertedRow() const;
    sqlite3* handle() const { return handle_; }

    /// Whether SQLite was compiled with a feature ("ENABLE_FTS5").
    static bool hasCompileOption(const char* name);

private:
    sqlite3* handle_ = nullptr;
};

/// A view on the current result row; valid until the statement steps on.
class Row {
public:
    explicit Row(sqlite3_stmt* statement) : statement_(statement) {}
    /// NULL reads as the empty string.
    std::string text(int column) const { return std::string(textView(column)); }
    std::string_view textView(int column) const;
    std::int64_t integer(int column) const;
    double real(int column) const;
    /// The bytes in place; empty for NULL.
    std::string_view blob(int column) const;
    bool isNull(int column) const;

private:
    sqlite3_stmt* statement_;
};

}  // namespace vesk

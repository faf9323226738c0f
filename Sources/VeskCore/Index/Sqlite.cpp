#include "VeskCore/Index/Sqlite.h"

#include <sqlite3.h>

#include "VeskCore/Index/IndexError.h"
#include "VeskCore/Support/Match.h"

namespace vesk {

namespace {

std::string message(sqlite3* database) {
    const char* text = database != nullptr ? sqlite3_errmsg(database) : nullptr;
    return text != nullptr && *text != '\0' ? text : "unknown SQLite error";
}

[[noreturn]] void fail(sqlite3* database, std::string_view sql, int code) {
    throw IndexError(IndexError::Sql{std::string(sql), message(database)}, code & 0xff);
}

}  // namespace

SQLValue SQLValue::text(std::string_view text) {
    return {Value(std::string(text))};
}

SQLValue SQLValue::textOrNull(const std::optional<std::string>& text) {
    return text ? SQLValue{Value(*text)} : null();
}

Statement::Statement(sqlite3* database, std::string_view sql, bool kept) : sql_(sql) {
    unsigned flags = kept ? SQLITE_PREPARE_PERSISTENT : 0;
    int code =
        sqlite3_prepare_v3(database, sql_.data(), static_cast<int>(sql_.size()), flags, &handle_, nullptr);
    if (code != SQLITE_OK) fail(database, sql_, code);
}

Statement::~Statement() {
    sqlite3_finalize(handle_);
}

void Statement::reset() {
    sqlite3_reset(handle_);  // repeats the code of the last step, which has been reported
    sqlite3_clear_bindings(handle_);
}

void Statement::bind(int index, const SQLValue& value) {
    match(
        value, [&](const std::string& text) { bindText(index, text); },
        [&](std::int64_t number) { bindInt(index, number); },
        [&](double number) { bindDouble(index, number); },
        [&](const SQLValue::Blob& blob) { bindBlob(index, blob.bytes); },
        [&](const SQLValue::Null&) { bindNull(index); });
}

void Statement::bind(std::span<const SQLValue> values) {
    int index = 0;
    for (const SQLValue& value : values) bind(++index, value);
}

void Statement::bindText(int index, std::string_view text) {
    text = text.substr(0, text.find('\0'));
    // A null pointer would bind NULL.
    const char* bytes = text.empty() ? "" : text.data();
    int code = sqlite3_bind_text64(handle_, index, bytes, text.size(), SQLITE_STATIC, SQLITE_UTF8);
    if (code != SQLITE_OK) fail(sqlite3_db_handle(handle_), sql_, code);
}

void Statement::bindBlob(int index, std::string_view bytes) {
    if (bytes.empty()) return bindNull(index);
    int code = sqlite3_bind_blob64(handle_, index, bytes.data(), bytes.size(), SQLITE_STATIC);
    if (code != SQLITE_OK) fail(sqlite3_db_handle(handle_), sql_, code);
}

void Statement::bindInt(int index, std::int64_t number) {
    int code = sqlite3_bind_int64(handle_, index, number);
    if (code != SQLITE_OK) fail(sqlite3_db_handle(handle_), sql_, code);
}

void Statement::bindDouble(int index, double number) {
    int code = sqlite3_bind_double(handle_, index, number);
    if (code != SQLITE_OK) fail(sqlite3_db_handle(handle_), sql_, code);
}

void Statement::bindNull(int index) {
    int code = sqlite3_bind_null(handle_, index);
    if (code != SQLITE_OK) fail(sqlite3_db_handle(handle_), sql_, code);
}

bool Statement::step() {
    int code = sqlite3_step(handle_);
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    fail(sqlite3_db_handle(handle_), sql_, code);
}

void Statement::finish() {
    while (step()) {
    }
}

SQLiteConnection::SQLiteConnection(const std::string& path) {
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
    int code = sqlite3_open_v2(path.c_str(), &handle_, flags, nullptr);
    if (code == SQLITE_OK) return;
    std::string detail = message(handle_);
    sqlite3_close_v2(handle_);
    throw IndexError(IndexError::CannotOpen{path, detail}, code & 0xff);
}

SQLiteConnection::~SQLiteConnection() {
    sqlite3_close_v2(handle_);
}

void SQLiteConnection::exec(std::string_view sql) {
    std::string text(sql);
    int code = sqlite3_exec(handle_, text.c_str(), nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) fail(handle_, sql, code);
}

void SQLiteConnection::setBusyTimeout(int milliseconds) {
    sqlite3_busy_timeout(handle_, milliseconds);
}

void SQLiteConnection::setTriggersEnabled(bool enabled) {
    sqlite3_db_config(handle_, SQLITE_DBCONFIG_ENABLE_TRIGGER, enabled ? 1 : 0, nullptr);
}

std::int64_t SQLiteConnection::lastInsertedRow() const {
    return sqlite3_last_insert_rowid(handle_);
}

bool SQLiteConnection::hasCompileOption(const char* name) {
    return sqlite3_compileoption_used(name) != 0;
}

std::string_view Row::textView(int column) const {
    const unsigned char* text = sqlite3_column_text(statement_, column);
    if (text == nullptr) return {};
    // The text first: asking for its length converts it too.
    auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
    return {reinterpret_cast<const char*>(text), length};
}

std::int64_t Row::integer(int column) const {
    return sqlite3_column_int64(statement_, column);
}

double Row::real(int column) const {
    return sqlite3_column_double(statement_, column);
}

std::string_view Row::blob(int column) const {
    const void* bytes = sqlite3_column_blob(statement_, column);
    if (bytes == nullptr) return {};
    auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement_, column));
    return {static_cast<const char*>(bytes), length};
}

bool Row::isNull(int column) const {
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

}  // namespace vesk

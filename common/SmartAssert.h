#pragma once
// smart_assert: assertions that collect what failed (expression, message, place, values) and hand
// it to a handler chosen by level. The host entry points use level 1000, which dumps and aborts.

#include <chrono>
#include <functional>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace utl {
/// text wrapped in the ANSI colour sequence number colour (0-9) and a reset.
std::string GetColoredString(const std::string& text, int colour);
}  // namespace utl

namespace smart_assert {

enum level : int {
    lvl_log = 0,
    lvl_warn = 100,
    lvl_debug = 200,
    lvl_error = 300,
    lvl_fatal = 1000,
};

/// Marks an assertion made without an expression.
inline constexpr const char* kNoExpression = "\"\"";

struct assert_context {
    std::string file;
    std::string function;
    int line = 0;
    std::string expression = kNoExpression;
    int level = lvl_debug;
    std::string msg;
    std::string time;
    std::string pid;
    std::string tid;
    std::string stack;
    std::vector<std::pair<std::string, std::string>> values;

    void add_val(const std::string& name, const std::string& value) {
        values.emplace_back(name, value);
    }
};

using assert_func = std::function<void(const assert_context&)>;

/// "Log", "Warning", "Debug", "Error", "Fatal", coloured; "(level=N)" for any other level.
std::string get_typeof_level(int level);
/// when as local time "%Y-%m-%d %H:%M:%S.<ms>", the milliseconds without leading zeros.
std::string format_time(std::chrono::system_clock::time_point when);
/// format_time of the wall clock, read in microseconds.
std::string get_current_time();
void dump_context_common(const assert_context& context, std::ostream& out);
void dump_context_detail(const assert_context& context, std::ostream& out);

void default_logger(const assert_context& context);
void default_log_handler(const assert_context& context);
void default_warn_handler(const assert_context& context);
void default_debug_handler(const assert_context& context);
void default_error_handler(const assert_context& context);
void default_fatal_handler(const assert_context& context);

/// One failed assertion; handled when the object ends (normally at the end of the statement).
class Assert {
public:
    explicit Assert(const char* expression);
    ~Assert() noexcept(false);

    Assert(const Assert&) = delete;
    Assert& operator=(const Assert&) = delete;

    Assert& context(const char* file, int line, const char* function);

    template <typename T>
    Assert& print_current_val(const T& value, const char* name) {
        ctx_.add_val(name, to_text(value));
        return *this;
    }

    Assert& level(int lvl, const std::string& msg = std::string());
    Assert& log(const std::string& msg) { return level(lvl_log, msg); }
    Assert& warn(const std::string& msg) { return level(lvl_warn, msg); }
    Assert& debug(const std::string& msg) { return level(lvl_debug, msg); }
    Assert& error(const std::string& msg) { return level(lvl_error, msg); }
    Assert& fatal(const std::string& msg) { return level(lvl_fatal, msg); }

    /// Shows the assertion even when the debug handler was told to ignore it.
    Assert& force_show() {
        force_show_ = true;
        return *this;
    }

    const assert_context& get_context() const { return ctx_; }
    void ignore() { ignored_ = true; }

    static void set_handler(int lvl, assert_func handler);
    /// The handler of exactly lvl; the debug handler when lvl has none.
    static assert_func get_handler(int lvl);
    static void set_logger(assert_func logger);
    /// The stream default_logger writes to; null (the default) writes nothing.
    static void set_log_stream(std::ostream* stream);
    static std::ostream* get_log_stream();

    /// The logger, then (unless ignored) the handler of the context's level.
    void handle_assert();

private:
    template <typename T>
    static std::string to_text(const T& value) {
        std::ostringstream out;
        if constexpr (std::is_pointer_v<T> || std::is_null_pointer_v<T>) {
            if (value == nullptr) {
                return "nullptr";
            }
            out << static_cast<const void*>(value);
        } else {
            out << value;
        }
        return out.str();
    }

    assert_context ctx_;
    std::string expression_;
    bool needs_handling_ = true;
    bool ignored_ = false;
    bool force_show_ = false;
};

}  // namespace smart_assert

/// Asserts expr at a given place; the chained calls add values and choose the level and message.
#define SMART_ASSERT_AT(expr, file, line, function) \
    if (expr) {                                     \
    } else                                          \
        ::smart_assert::Assert(#expr).context(file, line, function)

/// Asserts expr at the current place.
#define SMART_ASSERT(expr) SMART_ASSERT_AT(expr, __FILE__, __LINE__, __PRETTY_FUNCTION__)

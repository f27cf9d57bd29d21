#include "common/SmartAssert.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <iostream>
#include <mutex>
#include <set>
#include <stdexcept>

#include "common/platform/ThreadId.h"

namespace utl {

namespace {
const char* const kColours[] = {
    "\033[0;0;0m",   "\033[0;30;59m", "\033[0;37;59m", "\033[1m",       "\033[1;31;59m",
    "\033[0;32;59m", "\033[0;33;59m", "\033[0;34;59m", "\033[0;35;59m", "\033[0;36;59m",
};
constexpr int kColourCount = sizeof(kColours) / sizeof(kColours[0]);
}  // namespace

std::string GetColoredString(const std::string& text, int colour) {
    if (colour < 0 || colour >= kColourCount) {
        return text;
    }
    return std::string(kColours[colour]) + text + kColours[0];
}

}  // namespace utl

namespace smart_assert {

namespace {

constexpr int kHighlight = 3;

std::string highlighted(const char* word) {
    return utl::GetColoredString(word, kHighlight);
}

struct Registry {
    std::mutex mutex;
    std::map<int, assert_func> handlers;
    assert_func logger;
    std::ostream* logStream = nullptr;
};

Registry& registry() {
    static Registry instance;
    return instance;
}

void install_defaults() {
    Registry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    if (reg.logger && reg.handlers.size() > 4) {
        return;
    }
    reg.logger = default_logger;
    reg.handlers[lvl_log] = default_log_handler;
    reg.handlers[lvl_warn] = default_warn_handler;
    reg.handlers[lvl_debug] = default_debug_handler;
    reg.handlers[lvl_error] = default_error_handler;
    reg.handlers[lvl_fatal] = default_fatal_handler;
}

std::string detail_text(const assert_context& context) {
    std::ostringstream out;
    dump_context_detail(context, out);
    return out.str();
}

}  // namespace

std::string get_typeof_level(int lvl) {
    switch (lvl) {
        case lvl_log:
            return utl::GetColoredString("Log", 1);
        case lvl_warn:
            return utl::GetColoredString("Warning", 5);
        case lvl_debug:
            return utl::GetColoredString("Debug", 9);
        case lvl_error:
            return utl::GetColoredString("Error", 5);
        case lvl_fatal:
            return utl::GetColoredString("Fatal", 5);
        default:
            return "(level=" + std::to_string(lvl) + ")";
    }
}

std::string format_time(std::chrono::system_clock::time_point when) {
    using namespace std::chrono;
    const auto micros = duration_cast<microseconds>(when.time_since_epoch()).count();
    // Floor division keeps the millisecond part in 0-999 before the epoch as well.
    auto seconds = micros / 1000000;
    auto rest = micros % 1000000;
    if (rest < 0) {
        rest += 1000000;
        --seconds;
    }
    const auto wholeSeconds = static_cast<std::time_t>(seconds);
    std::tm local{};
    localtime_r(&wholeSeconds, &local);
    char text[64] = {};
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    return std::string(text) + "." + std::to_string(rest / 1000);
}

std::string get_current_time() {
    using namespace std::chrono;
    return format_time(time_point_cast<microseconds>(system_clock::now()));
}

void dump_context_common(const assert_context& context, std::ostream& out) {
    out << "basic information:\n"
        << "time:" << context.time << " "
        << "pid:" << context.pid << " "
        << "tid:" << context.tid << "\n";
    if (!context.msg.empty()) {
        out << highlighted("msg") << ": '" << context.msg << "'\n";
    }
    out << "if you want know the detail of assert,please check log\n";
    if (!context.stack.empty()) {
        out << "\nstack:\n" << context.stack << "\n";
    }
    out << get_typeof_level(context.level) << " in " << highlighted("File") << ": " << context.file
        << ", " << highlighted("Line") << ": " << context.line << ", " << highlighted("Function")
        << ": " << context.function << "\n";
    if (context.expression != kNoExpression) {
        // An assertion object exists only for an expression that did not hold.
        out << highlighted("Expression") << ": '" << context.expression << "' "
            << "failed"
            << "\n";
    }
}

void dump_context_detail(const assert_context& context, std::ostream& out) {
    dump_context_common(context, out);
    out << "Values:";
    for (const auto& [name, value] : context.values) {
        out << name << "='" << value << "'\n";
    }
}

void default_logger(const assert_context& context) {
    if (std::ostream* stream = Assert::get_log_stream()) {
        dump_context_detail(context, *stream);
    }
}

void default_log_handler(const assert_context& context) {
    std::ostream* stream = Assert::get_log_stream();
    dump_context_detail(context, stream != nullptr ? *stream : std::cout);
}

void default_warn_handler(const assert_context& context) {
    dump_context_detail(context, std::cout);
}

void default_debug_handler(const assert_context& context) {
    // Answers to "ignore forever" and "ignore all" outlive this one assertion.
    static std::mutex mutex;
    static std::set<std::pair<std::string, int>> ignoredForever;
    static bool ignoreAll = false;
    std::lock_guard<std::mutex> lock(mutex);
    const auto place = std::make_pair(context.file, context.line);
    if (ignoreAll || ignoredForever.count(place) != 0) {
        return;
    }
    dump_context_detail(context, std::cout);
    std::cout << "\nPress (I)gnore/ Igore (F)orever/ Ignore (A)ll/ (D)ebug/ A(b)ort: "
              << std::flush;
    const int answer = std::getchar();
    switch (answer) {
        case 'f':
        case 'F':
            ignoredForever.insert(place);
            break;
        case 'a':
        case 'A':
            ignoreAll = true;
            break;
        case 'd':
        case 'D':
            std::raise(SIGTRAP);
            break;
        case 'b':
        case 'B':
            std::abort();
        default:  // (I)gnore, or no terminal to ask
            break;
    }
}

void default_error_handler(const assert_context& context) {
    throw std::runtime_error(detail_text(context));
}

void default_fatal_handler(const assert_context& context) {
    dump_context_detail(context, std::cerr);
    std::cerr << "\n" << std::flush;
    std::abort();
}

Assert::Assert(const char* expression) : expression_(expression != nullptr ? expression : "") {
    install_defaults();
    ctx_.expression = expression_.empty() ? kNoExpression : expression_;
    ctx_.time = get_current_time();
    ctx_.pid = std::to_string(::getpid());
    ctx_.tid = std::to_string(corvid::platform::currentThreadId());
}

Assert::~Assert() noexcept(false) {
    if (needs_handling_) {
        needs_handling_ = false;
        handle_assert();
    }
}

Assert& Assert::context(const char* file, int line, const char* function) {
    ctx_.file = file != nullptr ? file : "";
    ctx_.line = line;
    ctx_.function = function != nullptr ? function : "";
    return *this;
}

Assert& Assert::level(int lvl, const std::string& msg) {
    ctx_.level = lvl;
    ctx_.msg = msg;
    return *this;
}

void Assert::set_handler(int lvl, assert_func handler) {
    install_defaults();
    Registry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    reg.handlers[lvl] = std::move(handler);
}

assert_func Assert::get_handler(int lvl) {
    install_defaults();
    Registry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    auto found = reg.handlers.find(lvl);
    return found != reg.handlers.end() ? found->second : reg.handlers[lvl_debug];
}

void Assert::set_logger(assert_func logger) {
    install_defaults();
    Registry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    reg.logger = std::move(logger);
}

void Assert::set_log_stream(std::ostream* stream) {
    Registry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    reg.logStream = stream;
}

std::ostream* Assert::get_log_stream() {
    Registry& reg = registry();
    std::lock_guard<std::mutex> lock(reg.mutex);
    return reg.logStream;
}

void Assert::handle_assert() {
    assert_func logger;
    {
        Registry& reg = registry();
        std::lock_guard<std::mutex> lock(reg.mutex);
        logger = reg.logger;
    }
    if (logger) {
        logger(ctx_);
    }
    if (ignored_ && !force_show_) {
        return;
    }
    if (assert_func handler = get_handler(ctx_.level)) {
        handler(ctx_);
    }
}

}  // namespace smart_assert

// Placeholder until the command runner lands.
namespace corvid::process::macos::details {}

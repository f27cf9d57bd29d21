// Placeholder until the binder lands.
namespace io {}

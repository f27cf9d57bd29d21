// Placeholder until the request models land.
namespace corvid::sdp_promote {}

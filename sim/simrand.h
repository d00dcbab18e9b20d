// sim/simrand.h
// Random numbers of the simulator: a hash of lattice points for the landscape, a seeded stream for the noise.
// Own code rather than <random>, whose distributions differ between libraries: a seed gives one project
// anywhere.
#pragma once
#include <cmath>
#include <cstdint>

namespace veld {
inline uint64_t sim_hash(uint64_t x) {  // finaliser of splitmix64
  x += 0x9E3779B97F4A7C15ull;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
  return x ^ (x >> 31);
}
inline double sim_unit(uint64_t h) { return static_cast<double>(h >> 11) * 0x1p-53; }  // [0, 1)
// [0, 1) for the lattice cell (i, j) of layer k. One hash of a sum of odd multiples: the landscape asks for a
// hundred of these for every height.
inline double sim_cell(uint64_t seed, int64_t i, int64_t j, uint64_t k) {
  return sim_unit(sim_hash(seed * 0xD6E8FEB86659FD93ull + k * 0xA0761D6478BD642Full +
                           static_cast<uint64_t>(i) * 0xE7037ED1A0B428DBull +
                           static_cast<uint64_t>(j) * 0x8EBC6AF09C88C6E3ull));
}

class SimRandom {
 public:
  explicit SimRandom(uint64_t seed) : state_(sim_hash(seed)) {}
  double uniform() { return sim_unit(sim_hash(state_++)); }
  double normal() {  // Box and Muller, one of the two values
    const double u = 1 - uniform(), v = uniform();
    return std::sqrt(-2 * std::log(u)) * std::cos(2 * M_PI * v);
  }

 private:
  uint64_t state_;
};
}  // namespace veld

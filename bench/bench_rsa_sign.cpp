// Placeholder until the benchmark lands.

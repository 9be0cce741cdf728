# Sources of the chain policy (placeholder until it lands).

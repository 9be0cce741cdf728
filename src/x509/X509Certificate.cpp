// Placeholder until this part lands.

# Placeholder until the chain policy tests land.

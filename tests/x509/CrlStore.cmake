# Placeholder until the CRL and store tests land.

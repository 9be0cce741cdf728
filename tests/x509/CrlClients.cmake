# Placeholder until the CRL client tests land.

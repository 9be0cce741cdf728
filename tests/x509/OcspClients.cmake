# Placeholder until the OCSP client tests land.

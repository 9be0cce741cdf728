# Placeholder until the certificate tests land.

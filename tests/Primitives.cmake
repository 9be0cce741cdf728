# Placeholder until the byte buffer, Base64 and hashing tests land.

// Placeholder until the PKCS#11 module wrapper lands.

// Placeholder until PKCS#11 start-up lands.

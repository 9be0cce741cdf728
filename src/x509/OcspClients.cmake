# Sources of the OCSP clients (placeholder until they land).

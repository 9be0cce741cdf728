# Sources of the CRL clients (placeholder until they land).

// Keeps the sandbox library non-empty while its sources are written.

// Owns the precompiled headers of the test programs.

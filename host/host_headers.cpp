// Owns the precompiled headers of the rooms.

// Compiled for the sake of its precompiled headers.

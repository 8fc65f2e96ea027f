// The shared library is assembled from the subsystem components; CMake
// wants at least one source of its own for it.

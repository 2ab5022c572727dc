// Intentionally empty: the shared object is made of the whole entity library.

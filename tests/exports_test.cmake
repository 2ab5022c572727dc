# The exports check reads the shared object itself.
add_dependencies(exports_test zok_rilproxy)

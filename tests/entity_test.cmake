# Allocation and pipe failures are injected at link level rather than through hooks in the entity.
target_link_options(entity_test PRIVATE -Wl,--wrap=calloc -Wl,--wrap=pipe)

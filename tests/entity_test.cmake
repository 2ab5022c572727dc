# Context allocation failure is injected at link level rather than through a hook in the entity.
target_link_options(entity_test PRIVATE -Wl,--wrap=calloc)

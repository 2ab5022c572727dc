target_link_options(frame_test PRIVATE -Wl,--wrap=send -Wl,--wrap=usleep)

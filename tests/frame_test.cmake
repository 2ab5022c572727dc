# send and usleep are wrapped at link level so the tests can inject EINTR, EAGAIN, zero-byte and
# short sends, and count the back-off sleeps without waiting for them.
target_link_options(frame_test PRIVATE -Wl,--wrap=send -Wl,--wrap=usleep)

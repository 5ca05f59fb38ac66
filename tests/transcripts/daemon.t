# The daemon's own: every message of the highest debug level on the way of a line, SIGUSR1,
# and a plug-in that cannot be bound.
only tcp
store KERV_DEBUG=9
plugin unresolved
# Only the missing symbol is reported: the plug-in's C library functions resolve.
log 1 unresolved symbol kerv_test_helper_nobody_provides
log 1 unresolved symbol
log 1 dbg = [WARNING, ERROR, INFO, FUNCTION, DBG]\r\n
> \{1500*x}\rATE1\rAT\r
= 1 998 AT\r
< \r\nERROR\r\nATE1\r\r\nOK\r\nAT\r\r\nOK\r\n

# USR1 prints one line and the daemon goes on; one at a time, as signals of one kind that
# arrive together are delivered once (the control socket's answer also wakes the main
# thread's select, where the handler runs under ThreadSanitizer).
signal USR1
hash E => hash_value1=[5], hash_value2=[0]
log 1 handle_debug: signal [10]\n
signal USR1
hash E => hash_value1=[5], hash_value2=[0]
log 2 handle_debug: signal [10]\n
> ATE1\r
< ATE1\r\r\nOK\r\n

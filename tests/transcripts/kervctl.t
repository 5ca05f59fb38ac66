# kervctl against the daemon: each command's output and exit status, and STOP and START.
only tcp
store KERV_URC_LISTEN_ENABLE=1
store KERV_DEBUG=4
modem AT+CSQ => \r\n+CSQ: 17,99\r\n\r\nOK\r\n
modem AT+COPS? => \r\n+CME ERROR: 30\r\n

kervctl hash +CSQ => 0 hash_value1=[5071], hash_value2=[0]\n
kervctl hash AT => 1 ERROR\n
kervctl reload => 0 RELOAD...\n
kervctl frobnicate => 64

# A URC without a host is dropped (the worker says so at debug level 4).
hangup
urc \r\n+EARLY\r\n
log 1 no host for the URC, dropped

# at prints each answer and stops after the first line that fails (kervctl is the host).
kervctl at ATE1 AT+CSQ => 0 ATE1\r\r\nOK\r\nAT+CSQ\r\r\n+CSQ: 17,99\r\n\r\nOK\r\n
= 1 998 AT+CSQ\r
kervctl at AT+COPS? ATE1 => 1 AT+COPS?\r\r\n+CME ERROR: 30\r\n
= 1 998 AT+COPS?\r

# A URC reaches the connected host.
reconnect
> ATE1\r
< ATE1\r\r\nOK\r\n
kervctl urc \r\n+CREG:\x205\r\n => 0
< \r\n+CREG: 5\r\n

# STOP closes the host's connection and the channel before it returns; STOP again and
# START find nothing to close, and each says so. The control socket keeps working.
kervctl stop => 0
kervctl at ATE1 => 2
kervctl stop => 0
kervctl start => 0
log 3 kerv_deinit\n
log 1 close new_fd.\n
log 2 kerv is NULL
kervctl hash E => 0 hash_value1=[5], hash_value2=[0]\n
urc RING
kervctl reload => 0 RELOAD...\n
end
kervctl hash +CSQ => 2

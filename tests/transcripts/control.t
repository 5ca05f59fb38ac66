# The control socket's wire: a reply is the packed request carrying only its text; what is
# refused gets no reply and changes nothing.
only tcp
control PMWC\0\0\x02\0\0\0\0\0\x78\x56\x34\x12\{36*\0}x\0 => PMWC\0\0\x02\0\0\0\0\0\x78\x56\x34\x12\{36*\0}RELOAD...\0

# Silent (closed after the control time-out), not a request, a service GEN_HASH, an
# application URC, an application AT command.
control  =>
control not a request =>
control PMWC\x01\0\x04\0\0\0\0\0\x78\x56\x34\x12\{36*\0}E\0 =>
control PMWC\0\0\x05\0\0\0\0\0\x78\x56\x34\x12\{36*\0}\r\nRING\r\n\0 =>
control PMWC\0\0\x03\0\0\0\0\0\x78\x56\x34\x12\{36*\0}ATE0\0 =>
> ATE1\r
< ATE1\r\r\nOK\r\n

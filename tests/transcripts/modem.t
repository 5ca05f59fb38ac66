# The modem daemon's answer reaches the host unchanged; no usable answer becomes ERROR.

# No answer within the waits, a datagram shorter than a response, an empty text.
modem silent
> AT+CSQ\r
= 1 998 AT+CSQ\r
< AT+CSQ\r\r\nERROR\r\n
modem short
> AT+CSQ\r
= 1 998 AT+CSQ\r
< AT+CSQ\r\r\nERROR\r\n
modem answer
modem * =>
> AT+CSQ\r
= 1 998 AT+CSQ\r
< AT+CSQ\r\r\nERROR\r\n
# A failed relay fails its line but does not stop it.
> ATE0;+CSQ;E1\r
= 1 998 AT+CSQ\r
< \r\nOK\r\n\r\nERROR\r\nE1\r\r\nOK\r\n\r\nERROR\r\n

# Text wins over a failure result.
modem result 14
modem * => \r\n+CME ERROR: 10\r\n
> AT+CSQ\r
= 1 998 AT+CSQ\r
< AT+CSQ\r\r\n+CME ERROR: 10\r\n
modem result 0

# A data_len that counts the terminating NUL keeps the line feed the relay adds; one
# shorter than the text cuts it; one far larger stays within the text.
modem * => \r\nOK\r\n
modem data_len 7
> AT+CSQ\r
= 1 998 AT+CSQ\r
< AT+CSQ\r\r\nOK\r\n\n
modem data_len 3
> AT+CSQ\r
= 1 998 AT+CSQ\r
< AT+CSQ\r\r\nO
modem data_len 5000
> AT+CSQ\r
= 1 998 AT+CSQ\r
< AT+CSQ\r\r\nOK\r\n\n
modem data_len -1
# The longest answer is cut to the response buffer.
modem * => \{1420*r}
> ATE0\r
< \r\nOK\r\n
> AT+CSQ\r
= 1 998 AT+CSQ\r
< \{1006*r}

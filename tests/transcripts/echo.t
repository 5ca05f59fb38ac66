# Echo (ATE) and result-code format (ATV): the daemon's own commands.

# ATE switches echo; its own answer already follows the new setting.
> ATE1\r
< ATE1\r\r\nOK\r\n
> ATE0\r
< \r\nOK\r\n
> ATE1\r
< ATE1\r\r\nOK\r\n
> ATE2\r
< ATE2\r\r\nERROR\r\n
> ATE0 \r
< \r\nOK\r\n
# E without a digit, or with two, is the modem's.
> ATE\r
= 1 998 ATE\r
< \r\nOK\r\n
> ATE01\r
= 1 998 ATE01\r
< \r\nOK\r\n

# ATV goes to the modem first; after ATV0 the result codes of a line are numbers, while
# the commands' own answers keep their words.
> ATV0\r
= 1 998 ATV0\r
< \r\nOK\r\n
> ATE0;E0\r
< \r\nOK\r\n\r\nOK\r\n\r\n0\r\n
> ATE0;AB\r
< \r\nOK\r\n\r\n3\r\n
# A modem that does not confirm ATV1 leaves the numeric codes.
modem short
> ATV1\r
= 1 998 ATV1\r
< \r\nERROR\r\n
> ATE0;AB\r
< \r\nOK\r\n\r\n3\r\n
modem answer
> ATV7\r
= 1 998 ATV7\r
< \r\nERROR\r\n
> ATV1\r
= 1 998 ATV1\r
< \r\nOK\r\n
> ATE0;AB\r
< \r\nOK\r\n\r\nERROR\r\n

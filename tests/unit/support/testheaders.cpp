// Nothing but the headers that all unit tests share.

-- expect: error "Memory limit" or "watchdog"
-- Padding a short string to the size the format names is one loop inside pack.
return #string.pack("c1000000000", "")

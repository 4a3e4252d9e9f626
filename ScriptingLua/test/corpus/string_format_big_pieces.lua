-- expect: error "Memory limit" or "watchdog"
local piece = string.rep("x", 1e7)
return #string.format("%s%s%s%s", piece, piece, piece, piece)

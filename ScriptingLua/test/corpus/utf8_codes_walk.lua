-- expect: error "watchdog"
local s = string.rep("\u{4F60}", 2e6)
while true do for p, c in utf8.codes(s) do end end

-- expect: error "watchdog"
for w in ("a b c"):gmatch("%a") do while true do end end

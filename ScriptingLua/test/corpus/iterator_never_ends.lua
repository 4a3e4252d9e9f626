-- expect: error "watchdog"
for k in function() return 1 end do end

-- expect: error "attempt to"
local _ENV = nil
return print

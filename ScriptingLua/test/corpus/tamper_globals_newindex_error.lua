-- expect: error "no globals"
setmetatable(_G, {__newindex = function() error("no globals") end})
x = 1

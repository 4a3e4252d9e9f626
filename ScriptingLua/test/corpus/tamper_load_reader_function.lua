-- expect: error "only source text"
return load(function() return nil end)

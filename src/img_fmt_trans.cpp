// placeholder until this module lands

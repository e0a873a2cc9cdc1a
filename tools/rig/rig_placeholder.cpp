// placeholder: the rig library fills this folder

// TOML front matter fields.

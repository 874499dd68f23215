// YAML front matter fields.

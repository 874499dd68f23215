-- Neovim (0.7 API) as a real client of `tarnwick-md lsp`: opens a Markdown file, starts and
-- attaches the server, asks for its document symbols, edits the buffer (an incremental change)
-- and asks again, then writes what it got as JSON. Run headless:
--   TARNWICK_MD=... LSP_TEST_FILE=doc.md LSP_TEST_OUT=out.json nvim --headless --clean -c 'luafile symbols.lua'
local client = dofile(vim.fn.fnamemodify(debug.getinfo(1, "S").source:sub(2), ":h") .. "/client.lua")

client.main(function(out)
  vim.cmd("edit " .. vim.fn.fnameescape(os.getenv("LSP_TEST_FILE")))
  local server = client.start(vim.api.nvim_get_current_buf(), out)
  out.capabilities = server.client.server_capabilities or server.client.resolved_capabilities
  out.symbols = client.ask(server, "textDocument/documentSymbol")
  out.folds = client.ask(server, "textDocument/foldingRange")
  -- An edit: a heading added at the end, and the first heading's text changed in place.
  vim.api.nvim_buf_set_lines(server.buffer, -1, -1, false, { "", "## Added in Neovim" })
  vim.api.nvim_buf_set_text(server.buffer, 0, 2, 0, 2, { "Edited " })
  out.symbols_after_edit = client.ask(server, "textDocument/documentSymbol")
  client.stop(server)
end)

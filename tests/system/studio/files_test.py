"""What the studio's page shows when files of its clip are lost while it plays."""

import unittest

import support


class FilesTest(support.StudioTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.pictures = cls.folder / "pictures"
        cls.pictures.mkdir()
        support.subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-i", str(cls.clip), "-frames:v", "12",
                                str(cls.pictures / "p_%04d.png")], check=True)

    def test_a_picture_that_is_gone_is_named_until_it_returns(self):
        lost = self.pictures / "p_0005.png"
        kept = self.folder / "kept.png"
        with self.another(self.pictures / "p_%04d.png") as page:
            page.click("#play")
            page.wait(lambda: page.picture()["frame"] > 1, "it does not play")
            lost.rename(kept)
            # Another picture is written, so that the pictures in memory are let go of.
            other = self.pictures / "p_0009.png"
            other.write_bytes(other.read_bytes())
            page.wait(lambda: "p_0005.png: is gone" in page.text("#problems"), "the lost picture is not named")
            page.wait(lambda: not page.studio("studio.state.playing"), "it goes on though there is no picture")
            self.assertTrue(page.find("#problems .problem").is_displayed())
            self.assertIn("put it back as it was, and the studio goes on", page.text("#problems"))
            self.assertNotEqual(page.picture()["frame"], 4)
            drawn = page.run("""
                const canvas = document.getElementById('picture');
                const codes = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data;
                return new Set(codes).size;""")
            self.assertGreater(drawn, 100, "the last good picture is gone")
            kept.rename(lost)
            page.wait(lambda: page.text("#problems") == "", "the message stays")
            page.wait(lambda: page.studio("studio.state.playing"), "it does not play on")
            page.wait(lambda: page.picture()["frame"] > 8, "it does not come to the end")
            page.click("#play")
            page.wait(lambda: not page.studio("studio.state.playing"), "it plays on")


if __name__ == "__main__":
    unittest.main()
